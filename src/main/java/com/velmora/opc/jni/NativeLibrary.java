package com.velmora.opc.jni;

import java.io.File;
import java.io.IOException;
import java.nio.file.Path;

/**
 * Loads the native library once per class loader. The system property {@value #PATH_PROPERTY}
 * names either the library file itself or the directory holding it. Without it, the natives that
 * the jar carries for this platform are extracted once into the user's cache folder
 * ({@link NativeCache}) and loaded from there; a jar without them looks the library up on
 * {@code java.library.path}.
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
                Path extracted = extracted();
                if (extracted == null) {
                    System.loadLibrary(NAME);
                } else {
                    System.load(extracted.resolve(System.mapLibraryName(NAME)).toAbsolutePath().toString());
                }
            } else {
                System.load(resolve(configured).getAbsolutePath());
            }
            loaded = true;
        }
    }

    /** The folder of the extracted natives, or null when the jar carries none for this platform. */
    private static Path extracted() {
        NativeCache cache = NativeCache.ofThisJar();
        if (cache == null) return null;
        try {
            return cache.extract();
        } catch (IOException e) {
            UnsatisfiedLinkError error = new UnsatisfiedLinkError("could not extract the " + NAME
                    + " natives from the jar: " + e.getMessage() + " (set -D" + PATH_PROPERTY
                    + " to a folder holding the library, or -D" + NativeCache.DIR_PROPERTY + " to a writable folder)");
            error.initCause(e);
            throw error;
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
