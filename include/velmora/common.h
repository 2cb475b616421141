// Every public class of the Velmora common library.
#pragma once

#include <velmora/Export.h>
#include <velmora/collections/KeyedList.h>
#include <velmora/collections/ListMap.h>
#include <velmora/collections/Map.h>
#include <velmora/collections/MultiKeyPropertiesFile.h>
#include <velmora/collections/NullMapStore.h>
#include <velmora/collections/PropertiesFile.h>
#include <velmora/files/DirectoryListing.h>
#include <velmora/files/FileUtil.h>
#include <velmora/http/Http.h>
#include <velmora/platform/PlatformUtil.h>
#include <velmora/text/CharReader.h>
#include <velmora/text/CharUtil.h>
#include <velmora/text/CharWriter.h>
#include <velmora/text/FileReader.h>
#include <velmora/text/FileWriter.h>
#include <velmora/text/MulticastWriter.h>
#include <velmora/text/StringBuffer.h>
#include <velmora/text/StringReader.h>
#include <velmora/text/StringWriter.h>
#include <velmora/text/UnicodeText.h>
#include <velmora/vre/Vre.h>
#include <velmora/vre/VreCore.h>
