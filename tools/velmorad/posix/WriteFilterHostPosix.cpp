#include "WriteFilterRoutes.h"

namespace velmorad {

bool writeFilterMayExist() {
    return false;
}

}  // namespace velmorad
