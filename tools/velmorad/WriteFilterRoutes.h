// The write-filter endpoints: GET /write-filter?drive=C reads the overlay of one protected
// volume, POST /write-filter?drive=C&command=N sets its command for the next boot.
#pragma once

#include "Exchange.h"

namespace velmorad {

void getWriteFilter(Exchange& x);
void postWriteFilter(Exchange& x);
// Whether this kind of system can have the write filter at all (Windows): elsewhere the
// answer says only that it is not available, without naming a Windows library.
bool writeFilterMayExist();

}  // namespace velmorad
