// The export macro of the runtime core (vre.dll / libvelmora-vre.so).
#pragma once

#if defined(_WIN32)
#if defined(VELMORA_VRE_BUILD)
#define VELMORA_VRE_API __declspec(dllexport)
#else
#define VELMORA_VRE_API __declspec(dllimport)
#endif
#else
#define VELMORA_VRE_API __attribute__((visibility("default")))
#endif
