package velmoratest;

import java.io.ByteArrayOutputStream;
import java.io.PrintStream;
import java.util.Arrays;
import java.util.List;
import javax.kova.log.Log;

/** Loads the probe library, logs through platLog and platLogf, checks what arrived. */
public class PlatLogCheck {
    static native void log(String name, int level, String message);
    static native void logFormatted(String name, int level, int number, String word);
    static native void logWithoutEnv(String name, int level, String message);

    public static void main(String[] args) {
        System.load(args[0]);
        PrintStream err = System.err;
        ByteArrayOutputStream described = new ByteArrayOutputStream();
        System.setErr(new PrintStream(described, true));
        log("daemon", 2, "disk almost full");
        logFormatted("http", 0, 42, "eth0");
        log("broken", 3, "never arrives"); // getLog throws: described, swallowed
        logWithoutEnv("jni", 1, "found the machine");
        System.setErr(err);
        List<String> expected = Arrays.asList("daemon|2|disk almost full|null",
                "http|0|port 42 on eth0|null", "jni|1|found the machine|null");
        boolean ok = Log.received.equals(expected)
                && described.toString().contains("IllegalStateException: no log named broken");
        System.out.println(ok ? "platLog: all checks passed"
                              : "platLog: got " + Log.received + ", described: " + described);
        System.exit(ok ? 0 : 1);
    }
}
