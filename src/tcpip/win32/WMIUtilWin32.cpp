// The system's WMI access: each call connects to ROOT\CIMV2, finds the
// Win32_NetworkAdapterConfiguration object of the hardware address and runs one method of
// the class on it. Connecting per call keeps no COM object across threads or apartments;
// the settings are changed seldom enough for that to cost nothing that matters.
#include "tcpip/win32/WMIUtilWin32.h"

// windows.h first: the COM headers build on it.
#include <windows.h>
// (separate block, so that sorting keeps the order)
#include <oleauto.h>
#include <wbemcli.h>

#include <cctype>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "tcpip/ConfigurationChoice.h"

namespace velmora {

namespace {

// Releases a COM interface when it goes.
template <typename T>
class ComRef {
public:
    ComRef() = default;
    ~ComRef() {
        if (p_ != nullptr) p_->Release();
    }
    T** out() { return &p_; }
    T* operator->() const { return p_; }
    T* get() const { return p_; }

private:
    ComRef(const ComRef&) = delete;
    ComRef& operator=(const ComRef&) = delete;
    T* p_ = nullptr;
};

class Bstr {
public:
    explicit Bstr(const std::wstring& text) : b_(SysAllocString(text.c_str())) {}
    Bstr() = default;
    ~Bstr() { SysFreeString(b_); }
    BSTR get() const { return b_; }
    BSTR* out() { return &b_; }

private:
    Bstr(const Bstr&) = delete;
    Bstr& operator=(const Bstr&) = delete;
    BSTR b_ = nullptr;
};

class Variant {
public:
    Variant() { VariantInit(&v_); }
    ~Variant() { VariantClear(&v_); }
    VARIANT* get() { return &v_; }

private:
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
    VARIANT v_;
};

// COM on the calling thread for the length of one call. A thread already in a
// single-threaded apartment keeps it (the call then runs there).
class ComScope {
public:
    ComScope() {
        HRESULT hr = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        owned_ = SUCCEEDED(hr);
        ok_ = owned_ || hr == RPC_E_CHANGED_MODE;
        status_ = hr;
    }
    ~ComScope() {
        if (owned_) CoUninitialize();
    }
    bool ok() const { return ok_; }
    HRESULT status() const { return status_; }

private:
    ComScope(const ComScope&) = delete;
    ComScope& operator=(const ComScope&) = delete;
    bool owned_ = false;
    bool ok_ = false;
    HRESULT status_ = S_OK;
};

std::wstring wide(const char* text) {
    if (text == nullptr || *text == '\0') return std::wstring();
    int n = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
    if (n <= 0) return std::wstring();
    std::wstring out(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_ACP, 0, text, -1, &out[0], n);
    out.resize(static_cast<size_t>(n - 1));
    return out;
}

// Only "XX:XX:XX:XX:XX:XX" goes into the query text.
bool isHardwareAddress(const char* mac) {
    if (mac == nullptr || std::strlen(mac) != 17) return false;
    for (int i = 0; i < 17; ++i) {
        const unsigned char c = static_cast<unsigned char>(mac[i]);
        if (i % 3 == 2 ? c != ':' : !std::isxdigit(c)) return false;
    }
    return true;
}

// A string array parameter: the words of a space-separated list (none for an empty list).
HRESULT putStrings(IWbemClassObject* in, const wchar_t* name, const char* list) {
    std::vector<std::wstring> words;
    std::string text = list != nullptr ? list : "";
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find(' ', start);
        if (end == std::string::npos) end = text.size();
        if (end > start) words.push_back(wide(text.substr(start, end - start).c_str()));
        start = end + 1;
    }
    SAFEARRAY* array = SafeArrayCreateVector(VT_BSTR, 0, static_cast<ULONG>(words.size()));
    if (array == nullptr) return E_OUTOFMEMORY;
    for (LONG i = 0; i < static_cast<LONG>(words.size()); ++i) {
        BSTR word = SysAllocString(words[static_cast<size_t>(i)].c_str());
        SafeArrayPutElement(array, &i, word);  // copies the string
        SysFreeString(word);
    }
    Variant value;
    value.get()->vt = VT_ARRAY | VT_BSTR;
    value.get()->parray = array;  // freed by the variant
    return in->Put(name, 0, value.get(), 0);
}

HRESULT putString(IWbemClassObject* in, const wchar_t* name, const char* text) {
    Variant value;
    value.get()->vt = VT_BSTR;
    value.get()->bstrVal = SysAllocString(wide(text).c_str());
    return in->Put(name, 0, value.get(), 0);
}

class SystemWmi : public WMIUtilWin32 {
public:
    int invokeEnableStaticOnMAC(const char* mac, const char* address, const char* mask) override {
        return invoke(mac, L"EnableStatic", [&](IWbemClassObject* in) {
            HRESULT hr = putStrings(in, L"IPAddress", address);
            return SUCCEEDED(hr) ? putStrings(in, L"SubnetMask", mask) : hr;
        });
    }

    int invokeEnableDHCPOnMAC(const char* mac) override {
        return invoke(mac, L"EnableDHCP", nullptr);
    }

    int invokeSetGatewaysOnMAC(const char* mac, const char* gateway) override {
        return invoke(mac, L"SetGateways", [&](IWbemClassObject* in) {
            return putStrings(in, L"DefaultIPGateway", gateway);
        });
    }

    int invokeSetDNSDomainOnMAC(const char* mac, const char* domain) override {
        return invoke(mac, L"SetDNSDomain",
                      [&](IWbemClassObject* in) { return putString(in, L"DNSDomain", domain); });
    }

    int invokeSetDNSServerSearchOrderOnMAC(const char* mac, const char* list) override {
        return invoke(mac, L"SetDNSServerSearchOrder", [&](IWbemClassObject* in) {
            return putStrings(in, L"DNSServerSearchOrder", list);
        });
    }

    long getLastStatus() override { return lastStatus_; }

private:
    using Fill = std::function<HRESULT(IWbemClassObject*)>;

    int fail(HRESULT hr) {
        lastStatus_ = static_cast<long>(hr);
        return -1;
    }

    int invoke(const char* mac, const wchar_t* method, const Fill& fill) {
        if (!isHardwareAddress(mac)) return fail(E_INVALIDARG);
        ComScope com;
        if (!com.ok()) return fail(com.status());
        ComRef<IWbemServices> services;
        HRESULT hr = connect(services);
        if (FAILED(hr)) return fail(hr);
        Bstr path;
        hr = findAdapter(services.get(), mac, path);
        if (FAILED(hr)) return fail(hr);
        ComRef<IWbemClassObject> in;
        hr = makeParameters(services.get(), method, fill, in);
        if (FAILED(hr)) return fail(hr);
        ComRef<IWbemClassObject> out;
        Bstr methodName(method);
        hr = services->ExecMethod(path.get(), methodName.get(), 0, nullptr, in.get(), out.out(),
                                  nullptr);
        if (FAILED(hr) || out.get() == nullptr) return fail(FAILED(hr) ? hr : E_FAIL);
        Variant result;
        hr = out->Get(L"ReturnValue", 0, result.get(), nullptr, nullptr);
        if (FAILED(hr)) return fail(hr);
        if (FAILED(VariantChangeType(result.get(), result.get(), 0, VT_I4))) return fail(E_FAIL);
        lastStatus_ = 0;
        return static_cast<int>(result.get()->lVal);
    }

    static HRESULT connect(ComRef<IWbemServices>& services) {
        ComRef<IWbemLocator> locator;
        HRESULT hr = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER,
                                      IID_IWbemLocator, reinterpret_cast<void**>(locator.out()));
        if (FAILED(hr)) return hr;
        Bstr space(L"ROOT\\CIMV2");
        hr = locator->ConnectServer(space.get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                    services.out());
        if (FAILED(hr)) return hr;
        // Changing adapters needs the caller's identity at the WMI service.
        CoSetProxyBlanket(services.get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                          RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
        return S_OK;
    }

    // The object path of the configuration whose MACAddress is `mac`: the IP-enabled one
    // where several share the address (see ConfigurationChoice).
    static HRESULT findAdapter(IWbemServices* services, const char* mac, Bstr& path) {
        Bstr language(L"WQL");
        Bstr query(L"SELECT * FROM Win32_NetworkAdapterConfiguration WHERE MACAddress = '" +
                   wide(mac) + L"'");
        ComRef<IEnumWbemClassObject> rows;
        HRESULT hr = services->ExecQuery(language.get(), query.get(),
                                         WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY,
                                         nullptr, rows.out());
        if (FAILED(hr)) return hr;
        ConfigurationChoice choice;
        for (;;) {
            ComRef<IWbemClassObject> row;
            ULONG count = 0;
            hr = rows->Next(static_cast<LONG>(WBEM_INFINITE), 1, row.out(), &count);
            if (FAILED(hr)) return hr;
            if (count == 0 || row.get() == nullptr) break;
            Variant value;
            hr = row->Get(L"__PATH", 0, value.get(), nullptr, nullptr);
            if (FAILED(hr) || value.get()->vt != VT_BSTR) continue;
            Variant enabled;
            const bool ipEnabled =
                SUCCEEDED(row->Get(L"IPEnabled", 0, enabled.get(), nullptr, nullptr)) &&
                enabled.get()->vt == VT_BOOL && enabled.get()->boolVal != VARIANT_FALSE;
            if (choice.offer(value.get()->bstrVal, ipEnabled)) break;
        }
        if (!choice.found()) return static_cast<HRESULT>(WBEM_E_NOT_FOUND);
        *path.out() = SysAllocString(choice.chosen().c_str());
        return S_OK;
    }

    // The method's input parameters filled by `fill`; none when the method takes none.
    static HRESULT makeParameters(IWbemServices* services, const wchar_t* method, const Fill& fill,
                                  ComRef<IWbemClassObject>& in) {
        Bstr className(L"Win32_NetworkAdapterConfiguration");
        ComRef<IWbemClassObject> type;
        HRESULT hr = services->GetObject(className.get(), 0, nullptr, type.out(), nullptr);
        if (FAILED(hr)) return hr;
        ComRef<IWbemClassObject> signature;
        hr = type->GetMethod(method, 0, signature.out(), nullptr);
        if (FAILED(hr)) return hr;
        if (!fill) return S_OK;
        if (signature.get() == nullptr) return WBEM_E_INVALID_METHOD_PARAMETERS;
        hr = signature->SpawnInstance(0, in.out());
        if (FAILED(hr)) return hr;
        return fill(in.get());
    }

    long lastStatus_ = 0;
};

bool substituted = false;
WMIUtilWin32* given = nullptr;

}  // namespace

WMIUtilWin32* WMIUtilWin32::getInstance() {
    if (substituted) return given;
    static SystemWmi system;
    return &system;
}

void WMIUtilWin32::substitute(WMIUtilWin32* wmi) {
    given = wmi;
    substituted = true;
}

void WMIUtilWin32::restore() {
    substituted = false;
    given = nullptr;
}

WMIUtilWin32::~WMIUtilWin32() = default;

}  // namespace velmora
