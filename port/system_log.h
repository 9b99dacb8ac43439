// The event log that a system's administrators watch.
#pragma once

#include <cstdint>
#include <string>

namespace qiv {

enum class SystemEventType : std::uint8_t { kInformation, kWarning, kError };

enum class SystemEvent : std::uint16_t {
#define QIV_SYSTEM_EVENT(name, number, type, english, chinese) name = number,
#include "port/system_events.def"
#undef QIV_SYSTEM_EVENT
};

/// Writes an event with these particulars (UTF-8, cut at 1,024 characters) to the Application log of Windows, source
/// "QivIpsIIs"; its text comes from the table in the module's file. Elsewhere nothing: what is told here also stands in
/// the module's own log, and a system that keeps journals of text reads that one. Thread safe; what cannot be written
/// is dropped.
void WriteSystemLog(SystemEvent event, const std::string& particulars) noexcept;

}  // namespace qiv
