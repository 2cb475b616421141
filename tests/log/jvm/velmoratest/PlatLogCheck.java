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
    static native void logWhileThrowing(String name, int level, String message);

    public static void main(String[] args) {
        System.load(args[0]);
        PrintStream err = System.err;
        ByteArrayOutputStream described = new ByteArrayOutputStream();
        System.setErr(new PrintStream(described, true));
        log("daemon", 2, "disk almost full");
        logFormatted("http", 0, 42, "eth0");
        log("broken", 3, "never arrives"); // getLog throws: described, swallowed
        logWithoutEnv("jni", 1, "found the machine");
        String kept = "nothing thrown";
        try {
            logWhileThrowing("busy", 2, "logged all the same");
        } catch (IllegalArgumentException e) {
            kept = e.getMessage();
        }
        System.setErr(err);
        List<String> expected = Arrays.asList("daemon|2|disk almost full|null",
                "http|0|port 42 on eth0|null", "jni|1|found the machine|null",
                "busy|2|logged all the same|null");
        boolean ok = Log.received.equals(expected) && kept.equals("the caller's own")
                && described.toString().contains("IllegalStateException: no log named broken");
        System.out.println(ok ? "platLog: all checks passed"
                              : "platLog: got " + Log.received + ", kept: " + kept
                                        + ", described: " + described);
        System.exit(ok ? 0 : 1);
    }
}
