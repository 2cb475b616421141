// Stand-ins for the host and adapter settings that answer from tables and write every
// call, with its arguments, to one shared list: "eth0.setDomain(example.org)". Tests
// compare whole call lists; the settings fuzz target applies documents to them.
#pragma once

#include <velmora/tcpip/TcpIpAdapterSettings.h>
#include <velmora/tcpip/TcpIpHostSettings.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace velmora_test {

using Calls = std::vector<std::string>;

// Answers and recording shared by both stand-ins.
class Answers {
public:
    Answers(std::string who, Calls* calls) : who_(std::move(who)), calls_(calls) {}

    std::map<std::string, std::string> text;               // getter name -> text it leaves
    std::map<std::string, int> number;                     // predicate or int getter -> answer
    std::map<std::string, std::vector<std::string>> list;  // "dns" / "ipv6Dns" -> entries

    void record(const std::string& call) const {
        if (calls_ != nullptr) calls_->push_back(who_ + "." + call);
    }
    int num(const char* name) const {
        record(name);
        auto i = number.find(name);
        return i == number.end() ? 0 : i->second;
    }
    void copy(const char* name, char* buffer, int size) const {
        record(name);
        if (size <= 0) return;
        auto i = text.find(name);
        std::snprintf(buffer, static_cast<size_t>(size), "%s",
                      i == text.end() ? "" : i->second.c_str());
    }
    int count(const char* name, const char* which) const {
        record(name);
        auto i = list.find(which);
        return i == list.end() ? 0 : static_cast<int>(i->second.size());
    }
    void fill(const char* name, const char* which, int n, char** buffers, int size) const {
        record(std::string(name) + "(" + std::to_string(n) + ")");
        auto i = list.find(which);
        for (int k = 0; k < n && i != list.end() && k < static_cast<int>(i->second.size()); ++k)
            std::snprintf(buffers[k], static_cast<size_t>(size), "%s", i->second[k].c_str());
    }
    int set(const char* name, const std::string& args) const {
        record(std::string(name) + "(" + args + ")");
        return 0;
    }

private:
    std::string who_;
    Calls* calls_;
};

inline std::string flag(bool b) {
    return b ? "true" : "false";
}
inline std::string str(const char* s) {
    return s != nullptr ? s : "<null>";
}
inline std::string joined(const char* const* e, int n) {
    std::string s;
    for (int i = 0; i < n; ++i)
        s += (i ? "|" : "") + str(e[i]);
    return s;
}

#define VT_BOOL(name)                            \
    bool name(velmora::ErrorHandler*) override { \
        return answers.num(#name) != 0;          \
    }
#define VT_INT(name)                            \
    int name(velmora::ErrorHandler*) override { \
        return answers.num(#name);              \
    }
#define VT_TEXT(name)                                            \
    void name(velmora::ErrorHandler*, char* b, int n) override { \
        answers.copy(#name, b, n);                               \
    }
#define VT_SET_TEXT(name)                                      \
    int name(velmora::ErrorHandler*, const char* v) override { \
        return answers.set(#name, str(v));                     \
    }
#define VT_SET_BOOL(name)                                \
    int name(velmora::ErrorHandler*, bool on) override { \
        return answers.set(#name, flag(on));             \
    }
// The list setters and getters that both classes share.
#define VT_DNS_OPERATIONS                                                               \
    int getDnsHostCount(velmora::ErrorHandler*) override {                              \
        return answers.count("getDnsHostCount", "dns");                                 \
    }                                                                                   \
    void getDnsHosts(velmora::ErrorHandler*, int n, char** b, int size) override {      \
        answers.fill("getDnsHosts", "dns", n, b, size);                                 \
    }                                                                                   \
    int getIpv6DnsHostCount(velmora::ErrorHandler*) override {                          \
        return answers.count("getIpv6DnsHostCount", "ipv6Dns");                         \
    }                                                                                   \
    void getIpv6DnsHosts(velmora::ErrorHandler*, int n, char** b, int size) override {  \
        answers.fill("getIpv6DnsHosts", "ipv6Dns", n, b, size);                         \
    }                                                                                   \
    VT_SET_TEXT(setDnsHosts)                                                            \
    int setDnsHosts(velmora::ErrorHandler*, const char* l, char sep) override {         \
        return answers.set("setDnsHosts", str(l) + "," + std::string(1, sep));          \
    }                                                                                   \
    int setDnsHosts(velmora::ErrorHandler*, const char* const* e, int n) override {     \
        return answers.set("setDnsHosts", joined(e, n));                                \
    }                                                                                   \
    VT_SET_TEXT(setIpv6DnsHosts)                                                        \
    int setIpv6DnsHosts(velmora::ErrorHandler*, const char* l, char sep) override {     \
        return answers.set("setIpv6DnsHosts", str(l) + "," + std::string(1, sep));      \
    }                                                                                   \
    int setIpv6DnsHosts(velmora::ErrorHandler*, const char* const* e, int n) override { \
        return answers.set("setIpv6DnsHosts", joined(e, n));                            \
    }

class RecordingAdapter : public velmora::TcpIpAdapterSettings {
public:
    RecordingAdapter(const char* id, Calls* calls) : TcpIpAdapterSettings(id), answers(id, calls) {
        answers.text["getId"] = id;
    }
    Answers answers;

    VT_BOOL(isEnabled)
    VT_BOOL(canDisable)
    VT_TEXT(getId)
    VT_TEXT(getDescription)
    VT_TEXT(getMACAddress)
    VT_BOOL(isDhcpEnabled)
    VT_BOOL(canUseDhcp)
    VT_TEXT(getDefaultGateway)
    VT_INT(getDnsHostLimit)
    VT_TEXT(getDomain)
    VT_TEXT(getIpAddress)
    VT_TEXT(getSubnetMask)
    VT_TEXT(getDhcpHost)
    VT_TEXT(getDhcpLeaseGranted)
    VT_TEXT(getDhcpLeaseExpires)
    VT_SET_TEXT(setIpAddress)
    VT_SET_TEXT(setSubnetMask)
    int setIpAddressSubnetMask(velmora::ErrorHandler*, const char* a, const char* m) override {
        return answers.set("setIpAddressSubnetMask", str(a) + "," + str(m));
    }
    VT_SET_TEXT(setDefaultGateway)
    VT_SET_TEXT(setDomain)
    VT_SET_BOOL(setDhcpEnabled)
    VT_SET_BOOL(setEnabled)
    VT_BOOL(isIpv6Supported)
    VT_BOOL(canDisableIpv6)
    VT_BOOL(isIpv6Enabled)
    VT_BOOL(isIpv6DhcpEnabled)
    VT_BOOL(canUseIpv6Dhcp)
    VT_TEXT(getIpv6Address)
    VT_INT(getIpv6SubnetPrefixLength)
    VT_TEXT(getIpv6DefaultGateway)
    VT_TEXT(getIpv6DefaultDevice)
    VT_SET_TEXT(setIpv6Address)
    int setIpv6SubnetPrefixLength(velmora::ErrorHandler*, int n) override {
        return answers.set("setIpv6SubnetPrefixLength", std::to_string(n));
    }
    VT_SET_TEXT(setIpv6DefaultGateway)
    VT_SET_TEXT(setIpv6DefaultDevice)
    VT_SET_BOOL(setIpv6Enabled)
    VT_TEXT(getIpv6DhcpHost)
    VT_TEXT(getIpv6DhcpLeaseGranted)
    VT_TEXT(getIpv6DhcpLeaseExpires)
    VT_SET_BOOL(setIpv6DhcpEnabled)
    VT_DNS_OPERATIONS
};

class RecordingHost : public velmora::TcpIpHostSettings {
public:
    explicit RecordingHost(Calls* calls) : answers("host", calls), calls_(calls) {}
    Answers answers;

    // A new recording adapter, owned by the host.
    RecordingAdapter* add(const char* id) {
        adapters_.push_back(new RecordingAdapter(id, calls_));
        auto** array = new velmora::TcpIpAdapterSettings*[adapters_.size()];
        for (size_t i = 0; i < adapters_.size(); ++i)
            array[i] = adapters_[i];
        setAdaptersKeepingObjects(array, static_cast<int>(adapters_.size()));
        return adapters_.back();
    }

    VT_BOOL(usesAdapterLevelSettings)
    VT_BOOL(isIPv6Readonly)
    VT_BOOL(isReadonly)
    VT_TEXT(getDomain)
    VT_TEXT(getDefaultGateway)
    VT_INT(getDnsHostLimit)
    VT_TEXT(getHostname)
    VT_SET_TEXT(setDomain)
    VT_SET_TEXT(setHostName)
    VT_SET_BOOL(setVelmoraUsesIpv6)
    VT_BOOL(getVelmoraUsesIpv6)
    VT_SET_TEXT(setDefaultGateway)
    VT_TEXT(getIpv6DefaultGateway)
    VT_TEXT(getIpv6DefaultDevice)
    VT_SET_TEXT(setIpv6DefaultGateway)
    VT_SET_TEXT(setIpv6DefaultDevice)
    VT_DNS_OPERATIONS

protected:
    void refreshAdapters(velmora::ErrorHandler*) override {}

private:
    // setAdapters destroys the objects of the former array; hand it a fresh array of the
    // same objects by first detaching the old one.
    void setAdaptersKeepingObjects(velmora::TcpIpAdapterSettings** array, int n) {
        int old = 0;
        velmora::TcpIpAdapterSettings** former = getAllAdapterSettings(nullptr, &old);
        if (former != nullptr) {
            // Forget the former array without destroying the adapters it shares.
            for (int i = 0; i < old; ++i)
                former[i] = nullptr;
        }
        setAdapters(array, n);
    }

    std::vector<RecordingAdapter*> adapters_;
    Calls* calls_;
};

}  // namespace velmora_test
