// The system's command runner: CreateProcess with one pipe for the child's standard output
// and error, read to its end, then the exit code.
#include "tcpip/win32/NetShUtilWin32.h"

#include <windows.h>

#include <string>
#include <vector>

namespace velmora {

namespace {

class Handle {
public:
    Handle() = default;
    ~Handle() { close(); }
    void close() {
        if (h_ != nullptr && h_ != INVALID_HANDLE_VALUE) CloseHandle(h_);
        h_ = nullptr;
    }
    HANDLE* out() { return &h_; }
    HANDLE get() const { return h_; }

private:
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    HANDLE h_ = nullptr;
};

// The program a command line starts, by its full path: a bare name ("ipv6", "cmd") is a
// tool of the system directory, never looked for in the current directory or on PATH,
// where anybody could have left a program of that name.
std::string programOf(const std::string& command) {
    if (command[0] == '"') return command.substr(1, command.find('"', 1) - 1);
    std::string program = command.substr(0, command.find_first_of(" \t"));
    if (program.find_first_of("\\/:") != std::string::npos) return program;
    if (program.find('.') == std::string::npos) program += ".exe";
    char dir[MAX_PATH];
    UINT length = GetSystemDirectoryA(dir, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) return "";
    return std::string(dir, length) + "\\" + program;
}

class SystemShell : public NetShUtilWin32 {
public:
    int executeCommand(const char* command) override {
        output_.clear();
        if (command == nullptr || *command == '\0') return -1;
        SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
        Handle readEnd, writeEnd, input;
        if (!CreatePipe(readEnd.out(), writeEnd.out(), &inherit, 0)) return -1;
        // Only the child's ends are inherited.
        SetHandleInformation(readEnd.get(), HANDLE_FLAG_INHERIT, 0);
        *input.out() = CreateFileA("NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                   &inherit, OPEN_EXISTING, 0, nullptr);
        STARTUPINFOA start = {};
        start.cb = sizeof start;
        start.dwFlags = STARTF_USESTDHANDLES;
        start.hStdInput = input.get();
        start.hStdOutput = writeEnd.get();
        start.hStdError = writeEnd.get();
        PROCESS_INFORMATION process = {};
        // CreateProcess may write into the command line: give it a copy.
        std::vector<char> line(command, command + std::string(command).size() + 1);
        const std::string program = programOf(command);
        if (program.empty() ||
            !CreateProcessA(program.c_str(), line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                            nullptr, nullptr, &start, &process))
            return -1;
        // The pipe ends at the child's exit only once this side's copy of its end is gone.
        writeEnd.close();
        input.close();
        char chunk[4096];
        DWORD got = 0;
        while (ReadFile(readEnd.get(), chunk, sizeof chunk, &got, nullptr) && got > 0)
            output_.append(chunk, got);
        WaitForSingleObject(process.hProcess, INFINITE);
        DWORD code = 0;
        if (!GetExitCodeProcess(process.hProcess, &code)) code = static_cast<DWORD>(-1);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
        return static_cast<int>(code);
    }

    const char* getOutputBuffer() override { return output_.c_str(); }

private:
    std::string output_;
};

bool substituted = false;
NetShUtilWin32* given = nullptr;

}  // namespace

NetShUtilWin32* NetShUtilWin32::getInstance() {
    if (substituted) return given;
    static SystemShell system;
    return &system;
}

void NetShUtilWin32::substitute(NetShUtilWin32* shell) {
    given = shell;
    substituted = true;
}

void NetShUtilWin32::restore() {
    substituted = false;
    given = nullptr;
}

NetShUtilWin32::~NetShUtilWin32() = default;

}  // namespace velmora
