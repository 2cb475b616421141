// Writes characters to a file in binary mode (no newline translation).
//
//   std::unique_ptr<velmora::FileWriter> out(velmora::FileWriter::make("logs/out.txt"));
//   if (out) out->writeString("ready\n");
#pragma once

#include <cstdio>

#include <velmora/text/CharWriter.h>

namespace velmora {

class VELMORA_API FileWriter : public CharWriter {
public:
    // Wraps an open stream; the writer closes it when closed or destroyed (standard output
    // too).
    explicit FileWriter(FILE* stream);
    // Creates the directories above the file, then opens it for writing, truncating it.
    // Null when the file cannot be opened.
    static FileWriter* make(const char* path);
    ~FileWriter() override;

    int write(const char* buf, int len) override;  // bytes written; 0 when closed
    bool write(char c) override;                   // false when closed or on error
    void close() override;
    // Pushes what stdio holds to the system; false on error or when closed.
    bool flush();

private:
    FileWriter(const FileWriter&) = delete;
    FileWriter& operator=(const FileWriter&) = delete;

    FILE* stream_;
};

}  // namespace velmora
