package velmoratest;

import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/** Loads the probe library, makes Java arrays from registry texts, checks what came back. */
public class RegArraysCheck {
    static native String[] delimited(byte[] text, String delimiters);
    static native String[] multiSz(byte[] data);

    static List<String> failures = new ArrayList<>();

    static void expect(String what, String[] got, String... expected) {
        if (!Arrays.equals(got, expected)) {
            failures.add(what + ": got " + Arrays.toString(got));
        }
    }

    static byte[] bytes(String s) {
        return s.getBytes(StandardCharsets.ISO_8859_1);
    }

    public static void main(String[] args) {
        System.load(args[0]);
        expect("delimited", delimited(bytes(" eth0;;eth1 ;"), "; "), "eth0", "eth1");
        expect("empty delimited", delimited(bytes(";;"), ";"));
        expect("multi-string", multiSz(bytes("10.0.0.1\0fd00::1\0\0")), "10.0.0.1", "fd00::1");
        expect("unterminated multi-string", multiSz(bytes("a\0bc")), "a", "bc");
        expect("code-page text", delimited(bytes("caf\u00e9;na\u00efve"), ";"), "caf\u00e9",
                "na\u00efve");
        expect("code-page multi-string", multiSz(bytes("\u00e9t\u00e9\0\u00c3\u00a9\0\0")),
                "\u00e9t\u00e9", "\u00c3\u00a9");

        StringBuilder many = new StringBuilder();
        for (int i = 0; i < 200; i++) many.append("n").append(i).append(',');
        String[] capped = delimited(bytes(many.toString()), ",");
        if (capped.length != 128 || !capped[0].equals("n0") || !capped[127].equals("n127")) {
            failures.add("delimited cap: " + capped.length + " entries");
        }
        byte[] multi = new byte[200 * 3];
        for (int i = 0; i < 200; i++) multi[i * 3] = 'x';
        if (multiSz(multi).length != 128) failures.add("multi-string cap");

        System.out.println(failures.isEmpty() ? "registry arrays: all checks passed"
                                              : "registry arrays: " + failures);
        System.exit(failures.isEmpty() ? 0 : 1);
    }
}
