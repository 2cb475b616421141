#include "WriteFilterRoutes.h"

namespace velmorad {

bool writeFilterMayExist() {
    return true;
}

}  // namespace velmorad
