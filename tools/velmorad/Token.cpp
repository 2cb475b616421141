#include "Token.h"

#include <velmora/files/FileUtil.h>
#include <velmora/text/CharUtil.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "Secrets.h"
#include "Settings.h"

namespace velmorad {

namespace {

const size_t kRandomBytes = 32;  // 256 bits
const size_t kShortest = 43;     // 256 bits in base64url, the shortest form accepted

bool isTokenCharacter(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-' ||
           c == '_';
}

// The file's modification time and size folded into one number; 0 when it cannot be seen.
int64_t stampOf(const std::string& path) {
    std::error_code error;
    auto time = std::filesystem::last_write_time(path, error);
    if (error) return 0;
    auto size = std::filesystem::file_size(path, error);
    if (error) return 0;
    uint64_t folded = static_cast<uint64_t>(time.time_since_epoch().count()) * 31u + size;
    return folded == 0 ? 1 : static_cast<int64_t>(folded);
}

std::string newToken() {
    unsigned char bytes[kRandomBytes];
    if (!secureRandom(bytes, sizeof bytes)) return std::string();
    char text[2 * kRandomBytes + 1];
    velmora::CharUtil::hexEncode(bytes, static_cast<int>(sizeof bytes), text);
    return text;
}

}  // namespace

bool Token::open(bool renew, bool* created, std::string* why) {
    std::lock_guard<std::mutex> hold(lock_);
    *created = false;
    if (renew || !velmora::FileUtil::isFileRegular(path_.c_str())) {
        if (!velmora::FileUtil::verifyPath(path_.c_str())) {
            *why = "cannot create the directory of " + path_;
            return false;
        }
        std::string token = newToken();
        if (token.empty()) {
            *why = "the system's secure random source failed";
            return false;
        }
        if (!writePrivateFile(path_, token + "\n", why)) return false;
        *created = true;
    }
    return read(why) && isPrivateFile(path_, why);
}

bool Token::read(std::string* why) {
    int64_t stamp = stampOf(path_);
    std::ifstream in(path_, std::ios::binary);
    std::ostringstream text;
    if (!in || !(text << in.rdbuf())) {
        *why = "cannot read " + path_;
        return false;
    }
    std::string token = text.str();
    while (!token.empty() && (token.back() == '\n' || token.back() == '\r'))
        token.pop_back();
    bool valid = token.size() >= kShortest && token.size() <= 512;
    for (char c : token)
        valid = valid && isTokenCharacter(c);
    if (!valid) {
        *why = path_ + " holds no token (64 hexadecimal digits); `velmorad token --new` writes one";
        return false;
    }
    value_ = token;
    stamp_ = stamp;
    return true;
}

void Token::refresh() {
    int64_t stamp = stampOf(path_);
    if (stamp == 0 || stamp == stamp_) return;
    std::string why;
    // A file being replaced or made unreadable keeps the token that was read last.
    if (isPrivateFile(path_, &why)) read(&why);
}

bool Token::matches(const std::string& presented) {
    std::string token;
    {
        std::lock_guard<std::mutex> hold(lock_);
        refresh();
        token = value_;
    }
    if (token.empty()) return false;
    // Every byte of the token is compared whatever the first difference: the time taken
    // tells nothing about how much of a guess was right.
    volatile unsigned char difference = presented.size() == token.size() ? 0 : 1;
    for (size_t i = 0; i < token.size(); ++i) {
        unsigned char p = i < presented.size() ? static_cast<unsigned char>(presented[i]) : 0;
        difference =
            static_cast<unsigned char>(difference | (p ^ static_cast<unsigned char>(token[i])));
    }
    return difference == 0;
}

std::string Token::value() {
    std::lock_guard<std::mutex> hold(lock_);
    refresh();
    return value_;
}

int tokenCommand(int argc, char** argv) {
    bool renew = false;
    std::vector<char*> rest{argv[0]};
    for (int i = 2; i < argc; ++i) {
        if (std::string(argv[i]) == "--new") {
            renew = true;
        } else {
            rest.push_back(argv[i]);
        }
    }
    Settings settings;
    if (!loadSettings(static_cast<int>(rest.size()), rest.data(), &settings)) return 2;
    Token token(settings.tokenPath());
    bool created = false;
    std::string why;
    if (!token.open(renew, &created, &why)) {
        std::fprintf(stderr, "velmorad: %s\n", why.c_str());
        return 1;
    }
    std::printf("%s\n", token.value().c_str());
    if (created) std::fprintf(stderr, "velmorad: wrote a new token to %s\n", token.path().c_str());
    return 0;
}

}  // namespace velmorad
