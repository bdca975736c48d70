package com.velmora.opc.jni;

import java.io.File;

/**
 * Loads the native library once per class loader. The system property {@value #PATH_PROPERTY}
 * names either the library file itself or the directory holding it; without it the library is
 * looked up on {@code java.library.path}.
 */
public final class NativeLibrary {
    public static final String PATH_PROPERTY = "opc.library.path";
    public static final String NAME = "opc";

    private static volatile boolean loaded;

    private NativeLibrary() {}

    public static void load() {
        if (loaded) return;
        synchronized (NativeLibrary.class) {
            if (loaded) return;
            String configured = System.getProperty(PATH_PROPERTY);
            if (configured == null || configured.isBlank()) {
                System.loadLibrary(NAME);
            } else {
                System.load(resolve(configured).getAbsolutePath());
            }
            loaded = true;
        }
    }

    /** The file that {@link #load()} loads for a configured path (a directory or a file). */
    static File resolve(String configured) {
        File path = new File(configured);
        if (path.isDirectory()) path = new File(path, System.mapLibraryName(NAME));
        if (!path.isFile()) {
            throw new UnsatisfiedLinkError("no " + NAME + " library at " + path.getAbsolutePath()
                    + " (from -D" + PATH_PROPERTY + "=" + configured + ")");
        }
        return path;
    }
}
