package com.velmora.opc.testsupport;

import java.security.Provider;
import java.security.SecureRandomSpi;
import java.util.SplittableRandom;

/**
 * A security provider whose only service is a non-cryptographic SecureRandom, installed first by
 * src/test/resources/windows-test.security for the test JVM under Wine: the JDK's own generators seed
 * themselves from the network adapters, whose listing calls an iphlpapi function that Wine 8 lacks,
 * and the JVM dies (temporary files and @TempDir ask for such a generator). Test use only.
 */
public final class TestRandomProvider extends Provider {
    private static final long serialVersionUID = 1L;

    public TestRandomProvider() {
        super("OpcTestRandom", "1.0", "Seeded from the clock; for temporary file names in tests only");
        putService(new Service(this, "SecureRandom", "OpcTestRandom", Generator.class.getName(), null, null));
    }

    /** SplittableRandom seeded from the clock and the process. */
    public static final class Generator extends SecureRandomSpi {
        private static final long serialVersionUID = 1L;
        private SplittableRandom random =
                new SplittableRandom(System.nanoTime() ^ ProcessHandle.current().pid() * 0x9E3779B97F4A7C15L);

        @Override
        protected synchronized void engineSetSeed(byte[] seed) {
            long mixed = random.nextLong();
            for (byte b : seed) mixed = mixed * 31 + b;
            random = new SplittableRandom(mixed);
        }

        @Override
        protected synchronized void engineNextBytes(byte[] bytes) {
            random.nextBytes(bytes);
        }

        @Override
        protected byte[] engineGenerateSeed(int length) {
            byte[] seed = new byte[length];
            engineNextBytes(seed);
            return seed;
        }
    }
}
