#include <velmora/log/SystemErrorFactory.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "log/LogSystem.h"

namespace velmora {

namespace {

struct WinsockName {
    unsigned long code;
    const char* name;
};

// The names of the Winsock constants. Kept: 10110 answers "WSAEWOULDBLOCK" like 10035
// (callers compare against that text); codes missing here come out as numbers.
const WinsockName kWinsockNames[] = {
    {10035, "WSAEWOULDBLOCK"},      {10036, "WSAEINPROGRESS"},
    {10037, "WSAEALREADY"},         {10038, "WSAENOTSOCK"},
    {10039, "WSAEDESTADDRREQ"},     {10040, "WSAEMSGSIZE"},
    {10041, "WSAEPROTOTYPE"},       {10042, "WSAENOPROTOOPT"},
    {10043, "WSAEPROTONOSUPPORT"},  {10044, "WSAESOCKTNOSUPPORT"},
    {10045, "WSAEOPNOTSUPP"},       {10046, "WSAEPFNOSUPPORT"},
    {10047, "WSAEAFNOSUPPORT"},     {10048, "WSAEADDRINUSE"},
    {10049, "WSAEADDRNOTAVAIL"},    {10050, "WSAENETDOWN"},
    {10051, "WSAENETUNREACH"},      {10052, "WSAENETRESET"},
    {10053, "WSAECONNABORTED"},     {10054, "WSAECONNRESET"},
    {10055, "WSAENOBUFS"},          {10056, "WSAEISCONN"},
    {10057, "WSAENOTCONN"},         {10058, "WSAESHUTDOWN"},
    {10059, "WSAETOOMANYREFS"},     {10060, "WSAETIMEDOUT"},
    {10061, "WSAECONNREFUSED"},     {10062, "WSAELOOP"},
    {10063, "WSAENAMETOOLONG"},     {10064, "WSAEHOSTDOWN"},
    {10065, "WSAEHOSTUNREACH"},     {10066, "WSAENOTEMPTY"},
    {10067, "WSAEPROCLIM"},         {10068, "WSAEUSERS"},
    {10069, "WSAEDQUOT"},           {10070, "WSAESTALE"},
    {10071, "WSAEREMOTE"},          {10091, "WSASYSNOTREADY"},
    {10092, "WSAVERNOTSUPPORTED"},  {10093, "WSANOTINITIALISED"},
    {10101, "WSAEDISCON"},          {10102, "WSAENOMORE"},
    {10103, "WSAECANCELLED"},       {10104, "WSAEINVALIDPROCTABLE"},
    {10105, "WSAEINVALIDPROVIDER"}, {10106, "WSAEPROVIDERFAILEDINIT"},
    {10107, "WSASYSCALLFAILURE"},   {10108, "WSASERVICE_NOT_FOUND"},
    {10109, "WSATYPE_NOT_FOUND"},   {10110, "WSAEWOULDBLOCK"},
    {10111, "WSA_E_CANCELLED"},     {10112, "WSAEREFUSED"},
    {11001, "WSAHOST_NOT_FOUND"},   {11002, "WSATRY_AGAIN"},
    {11003, "WSANO_RECOVERY"},      {11004, "WSANO_DATA"},
};

// The system's text for a non-zero code; a code the system has no text for (Wine lacks
// some) is named by its number rather than lost.
std::string systemText(unsigned long code) {
    char* text = logsys::errorText(code);
    if (text == nullptr) return "error " + std::to_string(code);
    std::string copy(text);
    logsys::freeErrorText(text);
    return copy;
}

}  // namespace

void SystemErrorFactory::error(ErrorHandler* handler) {
    unsigned long code = logsys::lastError();
    error(handler, code);
}

void SystemErrorFactory::error(ErrorHandler* handler, unsigned long code) {
    if (handler == nullptr) return;
    if (code == 0) {
        MessageBundle bundle("platform", "native.systemError", "Unknown System Error",
                             "A system error has occurred -> Unknown System Error");
        handler->error(&bundle);
        return;
    }
    std::string text = systemText(code);
    std::string message = "System Error: " + text + "\n";
    MessageBundle bundle("platform", "native.systemError", text.c_str(), message.c_str());
    handler->error(&bundle);
}

void SystemErrorFactory::error(ErrorHandler* handler, const char* prefix) {
    unsigned long code = logsys::lastError();
    if (handler == nullptr) return;
    if (code == 0) {
        MessageBundle bundle(prefix);
        handler->error(&bundle);
        return;
    }
    std::string message = std::string(prefix != nullptr ? prefix : "") + " " + systemText(code);
    MessageBundle bundle(message.c_str());
    handler->error(&bundle);
}

char* SystemErrorFactory::getWinsockErrorString() {
    unsigned long code = logsys::lastSocketError();
    char* buf = static_cast<char*>(std::calloc(64, 1));
    if (buf == nullptr) return nullptr;
    for (const WinsockName& entry : kWinsockNames) {
        if (entry.code == code) {
            std::strncpy(buf, entry.name, 63);
            return buf;
        }
    }
    std::snprintf(buf, 64, "%d", static_cast<int>(code));
    return buf;
}

}  // namespace velmora
