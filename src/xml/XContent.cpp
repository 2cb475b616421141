#include <velmora/xml/XContent.h>

namespace velmora {

XContent::~XContent() = default;

}  // namespace velmora
