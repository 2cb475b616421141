package javax.kova.log;

import java.util.ArrayList;
import java.util.List;

/** The platform's Java log as the native side sees it; remembers every call. */
public class Log {
    public static final List<String> received = new ArrayList<>();
    private final String name;

    private Log(String name) {
        this.name = name;
    }

    public static Log getLog(String name) {
        if (name.equals("broken")) throw new IllegalStateException("no log named broken");
        return new Log(name);
    }

    public void log(int level, String message, Throwable thrown) {
        received.add(name + "|" + level + "|" + message + "|" + thrown);
    }
}
