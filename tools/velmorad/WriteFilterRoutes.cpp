#include "WriteFilterRoutes.h"

#include <velmora/files/EwfUtil.h>
#include <velmora/log/ErrorHandler.h>
#include <velmora/log/MessageBundle.h>

#include <cstdint>
#include <mutex>
#include <string>

#include "Reports.h"

namespace velmorad {

namespace {

// The filter's instance is made without a lock and its calls are not meant to overlap, so
// requests on different connections take turns.
std::mutex filterLock;

// The drive letter of the query, or 0 when it is not one letter.
wchar_t driveOf(Exchange& x) {
    const std::string drive = x.query("drive", "");
    if (drive.size() != 1) return 0;
    const char c = drive[0];
    if (c >= 'a' && c <= 'z') return static_cast<wchar_t>(c - 'a' + 'A');
    return c >= 'A' && c <= 'Z' ? static_cast<wchar_t>(c) : 0;
}

// The instance, or null after answering 503 with the library's report.
velmora::EwfUtil* filterOrUnavailable(Exchange& x) {
    Reports report;
    velmora::EwfUtil* ewf = velmora::EwfUtil::getInstance(&report);
    if (ewf == nullptr) {
        std::string why = "the write filter is not available on this system";
        if (writeFilterMayExist() && !report.last().empty()) why += " (" + report.last() + ")";
        x.replyError(503, why.c_str());
    }
    return ewf;
}

// Answers the overlay of the drive as one element; 404 for a drive without a protected
// volume (whose getters would answer 0, the same as an enabled overlay), 500 with the
// first report when the filter fails.
void answerOverlay(Exchange& x, velmora::EwfUtil* ewf, wchar_t drive) {
    Reports report;
    const int found = ewf->isProtected(drive, &report);
    if (found == 0) {
        x.replyError(404, "no protected volume on this drive");
        return;
    }
    const int state = ewf->getOverlayState(drive, &report);
    const int command = ewf->getOverlayCommand(drive, &report);
    const int64_t ram = ewf->getOverlayRamUsage(drive, &report);
    if (report.any()) {
        x.replyError(500, report.last().c_str());
        return;
    }
    x.reply(200, "text/xml",
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<writeFilter drive=\"" +
                std::string(1, static_cast<char>(drive)) + "\" state=\"" + std::to_string(state) +
                "\" command=\"" + std::to_string(command) + "\" ramUsage=\"" + std::to_string(ram) +
                "\"/>\n");
}

}  // namespace

void getWriteFilter(Exchange& x) {
    const wchar_t drive = driveOf(x);
    if (drive == 0) {
        x.replyError(400, "the parameter drive must be one letter");
        return;
    }
    std::lock_guard<std::mutex> hold(filterLock);
    velmora::EwfUtil* ewf = filterOrUnavailable(x);
    if (ewf != nullptr) answerOverlay(x, ewf, drive);
}

void postWriteFilter(Exchange& x) {
    const wchar_t drive = driveOf(x);
    const std::string command = x.query("command", "");
    // The filter's boot commands: 0 none, 1 enable, 2 disable, 4 commit (3, set level, is
    // not offered).
    if (drive == 0 || command.size() != 1 || command.find_first_of("0124") != 0) {
        x.replyError(400, "drive (one letter) and command (0, 1, 2 or 4) are needed");
        return;
    }
    std::lock_guard<std::mutex> hold(filterLock);
    velmora::EwfUtil* ewf = filterOrUnavailable(x);
    if (ewf == nullptr) return;
    Reports report;
    if (!ewf->setOverlayCommand(drive, command[0] - '0', &report)) {
        if (report.any()) {
            x.replyError(500, report.last().c_str());
        } else {
            x.replyError(404, "no protected volume on this drive");
        }
        return;
    }
    answerOverlay(x, ewf, drive);
}

}  // namespace velmorad
