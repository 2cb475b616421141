// The export macro of the common library. Building the library defines
// VELMORA_COMMON_BUILD; on Windows its users then import the classes from common.dll,
// and on ELF systems only what carries VELMORA_API is visible (the library is built with
// hidden visibility by default).
#pragma once

#if defined(_WIN32)
#if defined(VELMORA_COMMON_BUILD)
#define VELMORA_API __declspec(dllexport)
#else
#define VELMORA_API __declspec(dllimport)
#endif
#else
#define VELMORA_API __attribute__((visibility("default")))
#endif
