#include "tools/vela/readreport.h"

#include "tools/vela/terminal.h"

namespace vela::tool {

bool reportLoss(const std::string& file, const formats::ReadReport& report, bool quiet) {
  if (!quiet) {
    for (const formats::Notice& notice : report.notices) {
      const std::string line = notice.line ? ":" + std::to_string(notice.line) : "";
      warn(file + line + ": " + notice.text);
    }
    if (report.noticeCount > report.notices.size()) {
      warn(file + ": and " +
           counted(report.noticeCount - report.notices.size(), "further warning"));
    }
  }
  return report.lossy();
}

}  // namespace vela::tool
