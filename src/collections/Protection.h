// Internal: keeps secret values of properties files (the "password" key) out of the
// file in clear, through the operating system's data-protection service where there is
// one. The protected form is printable text fit for a properties line.
#pragma once

#include <string>

namespace velmora {
namespace protection {

// The protected text of `clear`; false when the system offers no protection or it failed
// (the caller then writes the clear form).
bool protect(const char* clear, std::string* text);
// The clear value of a text made by protect(); false when it cannot be recovered.
bool unprotect(const char* text, std::string* clear);

}  // namespace protection
}  // namespace velmora
