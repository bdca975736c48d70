package com.velmora.opc.testsupport;

import com.velmora.opc.OpcEnv;
import java.util.*;
import java.util.logging.*;

/**
 * Captures what the library logs through {@link OpcEnv}'s sinks while open. Relies on the JDK's
 * default System.Logger backend (java.util.logging), as a plain test JVM has it.
 */
public final class LogCapture extends Handler implements AutoCloseable {
    /** One captured line: level name as System.Logger gave it, and the text. */
    public record Line(String level, String text) {}

    private final Logger logger = Logger.getLogger(OpcEnv.LOGGER_NAME);
    private final Level previousLevel = logger.getLevel();
    private final boolean previousParents = logger.getUseParentHandlers();
    private final List<Line> lines = new ArrayList<>();

    public LogCapture() {
        setLevel(Level.ALL);
        logger.setLevel(Level.ALL);
        logger.setUseParentHandlers(false);
        logger.addHandler(this);
    }

    @Override
    public synchronized void publish(LogRecord record) {
        lines.add(new Line(levelName(record.getLevel()), record.getMessage()));
    }

    public synchronized List<Line> lines() {
        return List.copyOf(lines);
    }

    public synchronized List<String> texts() {
        return lines.stream().map(Line::text).toList();
    }

    /** The levels of the captured lines, each once, in order of first appearance. */
    public synchronized List<String> levels() {
        return lines.stream().map(Line::level).distinct().toList();
    }

    @Override
    public void flush() {}

    @Override
    public void close() {
        logger.removeHandler(this);
        logger.setLevel(previousLevel);
        logger.setUseParentHandlers(previousParents);
    }

    private static String levelName(Level level) {
        if (level.intValue() >= Level.SEVERE.intValue()) return "ERROR";
        if (level.intValue() >= Level.WARNING.intValue()) return "WARNING";
        if (level.intValue() >= Level.INFO.intValue()) return "INFO";
        if (level.intValue() >= Level.FINE.intValue()) return "DEBUG";
        return "TRACE";
    }
}
