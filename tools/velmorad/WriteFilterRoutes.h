// The write-filter endpoints: GET /write-filter?drive=C reads the overlay of one protected
// volume, POST /write-filter?drive=C&command=N sets its command for the next boot.
#pragma once

#include "Exchange.h"

namespace velmorad {

void getWriteFilter(Exchange& x);
void postWriteFilter(Exchange& x);

}  // namespace velmorad
