// Control of the Enhanced Write Filter of Windows Embedded for one protected volume,
// named by its drive letter: the overlay's state, the command pending for the next boot,
// the RAM a RAM overlay uses; and a printout of every protected volume's configuration.
// The filter's management library "ewfapi.dll" is loaded at run time, so where it is not
// installed getInstance reports "ewfapi.dll is not available" and answers null.
//
//   velmora::EwfUtil* ewf = velmora::EwfUtil::getInstance(log);
//   if (ewf != nullptr && ewf->isProtected(L'C', log) == 1 &&
//       ewf->getOverlayState(L'C', log) == 0)                        // 0: enabled
//       ewf->setOverlayCommand(L'C', 4, log);                        // commit at next boot
//
// Values are the filter's own: states 0 enabled, 1 disabled; commands 0 none, 1 enable,
// 2 disable, 3 set level, 4 commit. A drive letter that matches no protected volume is not
// an error: the getters answer 0 and setOverlayCommand false, with nothing reported, so a
// state of 0 means "enabled" only for a drive that isProtected says is protected. A step
// that fails before the value is read makes a getter answer -1. Failures are reported once
// per call, as "<filter function> failed, reason code=<last error>\n". Drive letters
// match ignoring ASCII case.
//
// Off Windows there is no write filter: getInstance always reports and answers null.
#pragma once

#include <velmora/Export.h>

#include <cstdint>

namespace velmora {

class ErrorHandler;

class VELMORA_API EwfUtil {
public:
    // The process's instance, loading the management library on first use; null (reported)
    // when it cannot be loaded. Made without a lock: call it before starting threads.
    static EwfUtil* getInstance(ErrorHandler* err);
    // Destroys the instance and releases the library; the next getInstance loads again.
    static void unload();

    // 1 when the drive holds a protected volume, 0 when it holds none, -1 when the
    // protected volumes cannot be listed (reported).
    int isProtected(wchar_t drive, ErrorHandler* err);
    int getOverlayState(wchar_t drive, ErrorHandler* err);
    int getOverlayCommand(wchar_t drive, ErrorHandler* err);
    // Bytes of data in the RAM overlay.
    int64_t getOverlayRamUsage(wchar_t drive, ErrorHandler* err);
    // Sets the command for the next boot: 0 clears it, 1 enables, 2 disables (always
    // committing the overlay), 4 commits. 3 (set level) and unknown numbers fail without
    // asking the filter. Prints "EwfMgr Command succeeded\n" on success.
    bool setOverlayCommand(wchar_t drive, int command, ErrorHandler* err);
    // Prints each protected volume ("C: = <volume name>") and its configuration on standard
    // output, failures included. 0 when every step worked, else the first failure's reason
    // code.
    int64_t dumpEwfProtectedVolumeList(ErrorHandler* err);

private:
    EwfUtil() = default;
    EwfUtil(const EwfUtil&) = delete;
    EwfUtil& operator=(const EwfUtil&) = delete;
};

}  // namespace velmora
