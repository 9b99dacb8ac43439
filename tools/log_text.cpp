#include "tools/log_text.h"

#include <array>
#include <cstdio>
#include <memory>

#include "common/char_set.h"
#include "common/json.h"
#include "common/text.h"
#include "config/exchange_lines.h"
#include "port/clock.h"
#include "tools/list_store.h"
#include "tools/printable.h"

namespace qiv {
namespace {

/// The names of a line's fields; null for one that says nothing.
struct LineShape {
  std::string_view kind;
  std::array<const char*, LineFields::kNamed> names;
};
constexpr LineShape kShapes[] = {
    {"msg", {nullptr, "client", "category", "item", nullptr, nullptr, "reason", "url"}},
    {"check", {nullptr, "check", "client", "action", nullptr, "count", "rule", nullptr}},
    {"tongji", {nullptr, "category", nullptr, "client", "rule", "count", nullptr, nullptr}},
};

const LineShape* FindShape(std::string_view kind) {
  for (const LineShape& shape : kShapes) {
    if (shape.kind == kind) return &shape;
  }
  return nullptr;
}

/// Two-byte sequences alone do not make UTF-8: many pairs of GBK bytes look like one.
bool LooksLikeUtf8(std::string_view text) {
  bool has_long_sequence = false;
  for (const char c : text) has_long_sequence = has_long_sequence || static_cast<unsigned char>(c) >= 0xE0;
  return has_long_sequence && CCharSet::IsValidUtf8(text);
}

/// "reason (item, category)" from the details of a lock line.
std::string DetailsText(std::string_view details) {
  std::string text;
  std::size_t count = 0;
  bool more = true;
  while (more) {
    const std::size_t tab = details.find('\t');
    more = tab != std::string_view::npos;
    if (count != 0) text += count == 1 ? " (" : ", ";
    text += FieldToUtf8(details.substr(0, tab));
    details.remove_prefix(more ? tab + 1 : details.size());
    ++count;
  }
  return count > 1 ? text + ")" : text;
}

std::string LockText(const LockRequest& request) {
  const ListEntry& entry = request.entry;
  std::string text =
      LocalTimeText(entry.start) + " lock   " + std::string(ClientListName(entry.list)) + " " + entry.client.Text();
  text += request.removed ? " ended" : " until " + LocalTimeText(entry.end);
  return text + ": " + DetailsText(entry.details);
}

}  // namespace

std::string LocalTimeText(std::int64_t unix_seconds) {
  const CalendarTime time = LocalTime(unix_seconds);
  std::array<char, 80> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d", time.year, time.month, time.day, time.hour,
                time.minute, time.second);
  return text.data();
}

std::string FieldToUtf8(std::string_view field) {
  if (CCharSet::IsAscii(field) || LooksLikeUtf8(field)) return std::string(field);
  return CCharSet::LocalToUtf8(field);
}

std::string LogLineText(std::string_view line) {
  const LineFields fields = SplitFields(line);
  std::string text = "                    ";
  if (const LineShape* const shape = FindShape(fields.field[0])) {
    text += shape->kind;
    text.resize(26, ' ');
    for (std::size_t i = 1; i < LineFields::kNamed; ++i) {
      if (shape->names[i] == nullptr || fields.field[i] == "-") continue;
      text.append(" ").append(shape->names[i]).append("=").append(FieldToUtf8(fields.field[i]));
    }
  } else if (const auto request = ParseLockRequest(fields)) {
    text = LockText(*request);
  } else {
    text += "unknown " + std::to_string(line.size()) + " bytes";
  }
  return PrintableUtf8(std::move(text));
}

std::string LogLineJson(std::string_view line) {
  const LineFields fields = SplitFields(line);
  JsonObject object;
  const auto set_number = [&object](const char* name, std::int64_t value) {
    object.Set(name, std::make_unique<JsonNumber>(value));
  };
  if (const LineShape* const shape = FindShape(fields.field[0])) {
    object.SetText("kind", std::string(shape->kind));
    for (std::size_t i = 1; i < LineFields::kNamed; ++i) {
      if (shape->names[i] == nullptr) continue;
      if (shape->names[i] == std::string_view("count")) {
        set_number("count", DigitsToNumber(fields.field[i]));
      } else {
        object.SetText(shape->names[i], FieldToUtf8(fields.field[i]));
      }
    }
  } else if (const auto request = ParseLockRequest(fields)) {
    object.SetText("kind", "lock");
    object.SetText("list", std::string(ClientListName(request->entry.list)));
    object.SetText("operation", request->removed ? "del" : "add");
    object.SetText("client", request->entry.client.Text());
    set_number("start", request->entry.start);
    set_number("end", request->entry.end);
    object.SetText("detail", DetailsText(request->entry.details));
  } else {
    object.SetText("kind", "unknown");
    set_number("bytes", static_cast<std::int64_t>(line.size()));
  }
  return WriteJson(object);
}

}  // namespace qiv
