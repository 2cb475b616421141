// Gives back a block of memory that the library handed to its caller: the texts of
// SocketInput::readLine and readString, the blocks of CharReader::getBuf, the name of
// SystemErrorFactory::getWinsockErrorString, the copies of Map::get and KeyedList::get
// (key, out, def). The library frees them itself, with its own C runtime, so that a program
// built against another runtime (another compiler, a debug runtime on Windows) never
// frees them with the wrong one. Null is allowed.
//
//   char* line = socket->getInput()->readLine();
//   if (line != nullptr) use(line);
//   velmora::release(line);
#pragma once

#include <velmora/Export.h>

namespace velmora {

VELMORA_API void release(void* block);

}  // namespace velmora
