#include "host/xmllibrary.h"

#include <xercesc/util/PlatformUtils.hpp>

namespace host {

void startXmlLibrary() {
  static const bool started = [] {
    xercesc::XMLPlatformUtils::Initialize();
    return true;
  }();
  static_cast<void>(started);
}

}  // namespace host
