// Byte-to-text encoders: Base64 (standard alphabet, no line breaks) with a lenient decoder,
// lowercase hexadecimal, and the hexadecimal MD5 digest of a byte block.
//
//   const unsigned char data[] = {'M', 'a'};
//   char text[8];                                   // base64EncodeSize(2) == 5
//   velmora::CharUtil::base64Encode(data, 2, text);  // "TWE=", returns 4
//
// Sizes that would not fit in an int, and negative sizes, give a size of 0; the encoders
// then write nothing and return 0.
#pragma once

#include <velmora/Export.h>

namespace velmora {

class VELMORA_API CharUtil {
public:
    // Buffer size for encoding n bytes, terminator included: 4 characters per started
    // group of three bytes, plus one.
    static int base64EncodeSize(int n);
    // Writes the Base64 text of `n` bytes and its terminator (base64EncodeSize(n) bytes in
    // all) and returns the number of characters, terminator excluded.
    static int base64Encode(const unsigned char* in, int n, char* out);
    // Buffer size that decoding n characters never exceeds: n * 0.75 + 1, truncated.
    static int base64DecodeSize(int n);
    // Decodes `n` characters leniently and returns the number of bytes written. Characters
    // outside the alphabet (padding, white space, anything) are skipped; a final group of
    // two or three characters gives the one or two bytes it covers; a single one, nothing.
    // Nothing is terminated.
    static int base64Decode(const char* in, int n, unsigned char* out);

    // 2n + 1.
    static int hexEncodeSize(int n);
    // Two lowercase hexadecimal digits per byte, high nibble first, then a terminator.
    static void hexEncode(const unsigned char* in, int n, char* out);

    // Writes exactly 32 lowercase hexadecimal digits of the MD5 digest of the block, computed
    // by the runtime core, and NO terminator: callers give at least 33 bytes and terminate
    // the text themselves. Returns false, writing nothing, when the core gives no digest.
    static bool hexMD5(const unsigned char* in, int n, char out[]);

private:
    CharUtil() = delete;
};

}  // namespace velmora
