#include "port/system_log.h"

#include <windows.h>

#include <exception>

#include "port/code_page.h"

namespace qiv {
namespace {

constexpr std::size_t kMostCharacters = 1024;

WORD TypeOf(SystemEventType type) {
  switch (type) {
    case SystemEventType::kInformation:
      return EVENTLOG_INFORMATION_TYPE;
    case SystemEventType::kWarning:
      return EVENTLOG_WARNING_TYPE;
    case SystemEventType::kError:
      break;
  }
  return EVENTLOG_ERROR_TYPE;
}

WORD TypeOf(SystemEvent event) {
  switch (event) {
#define QIV_SYSTEM_EVENT(name, number, type, english, chinese) \
  case SystemEvent::name:                                      \
    return TypeOf(SystemEventType::type);
#include "port/system_events.def"
#undef QIV_SYSTEM_EVENT
  }
  return EVENTLOG_ERROR_TYPE;
}

}  // namespace

void WriteSystemLog(SystemEvent event, const std::string& particulars) noexcept {
  try {
    const std::u16string wide = Utf8ToUtf16(particulars).substr(0, kMostCharacters);
    const HANDLE source = RegisterEventSourceW(nullptr, L"QivIpsIIs");
    if (source == nullptr) return;
    const wchar_t* text = reinterpret_cast<const wchar_t*>(wide.c_str());
    ReportEventW(source, TypeOf(event), 0, static_cast<DWORD>(event), nullptr, 1, 0, &text, nullptr);
    DeregisterEventSource(source);
  } catch (const std::exception&) {
    // Out of memory: the module's own log tells it.
  }
}

}  // namespace qiv
