#include "tools/service_journal.h"

#include <memory>

#include "common/json.h"
#include "config/exchange_lines.h"
#include "tools/list_store.h"

namespace qiv {
namespace {

constexpr std::int64_t kVersion = 1;

std::unique_ptr<IJsonValue> Number(std::uint64_t value) {
  return std::make_unique<JsonNumber>(static_cast<std::int64_t>(value));
}

std::unique_ptr<IJsonValue> Counts(const std::map<std::string, std::uint64_t>& counts) {
  auto object = std::make_unique<JsonObject>();
  for (const auto& [name, count] : counts) object->Set(name, Number(count));
  return object;
}

std::int64_t ReadNumber(const JsonObject& object, std::string_view key) {
  const IJsonValue* const value = object.Find(key);
  const JsonNumber* const number = value != nullptr ? value->AsNumber() : nullptr;
  return number != nullptr ? number->ToInt64().value_or(0) : 0;
}

std::uint64_t ReadCount(const JsonObject& object, std::string_view key) {
  const std::int64_t value = ReadNumber(object, key);
  return value > 0 ? static_cast<std::uint64_t>(value) : 0;
}

void ReadCounts(const JsonObject& object, std::string_view key, std::map<std::string, std::uint64_t>* counts) {
  const IJsonValue* const value = object.Find(key);
  const JsonObject* const members = value != nullptr ? value->AsObject() : nullptr;
  if (members == nullptr) return;
  for (const JsonObject::Member* const member : members->Members()) {
    (*counts)[member->first] = ReadCount(*members, member->first);
  }
}

const JsonArray* ReadArray(const JsonObject& object, std::string_view key) {
  const IJsonValue* const value = object.Find(key);
  return value != nullptr ? value->AsArray() : nullptr;
}

std::unique_ptr<IJsonValue> TotalsToJson(const ServiceTotals& totals) {
  auto object = std::make_unique<JsonObject>();
  object->Set("lines", Number(totals.lines));
  object->Set("locks", Number(totals.locks));
  object->Set("messages", Number(totals.messages));
  object->Set("malformed", Number(totals.malformed));
  object->Set("blocks", Counts(totals.blocks));
  object->Set("statistics", Counts(totals.statistics));
  return object;
}

}  // namespace

std::string ServiceJournal::ToJson() const {
  JsonObject object;
  object.Set("version", Number(kVersion));
  object.Set("offset", Number(offset));
  object.Set("last_sequence", Number(last_sequence));
  object.Set("moving", Number(moving));
  auto files = std::make_unique<JsonArray>();
  for (const RetiredFile& file : retired) {
    auto item = std::make_unique<JsonObject>();
    item->Set("sequence", Number(file.sequence));
    item->Set("offset", Number(file.offset));
    item->Set("until", std::make_unique<JsonNumber>(file.until));
    files->Append(std::move(item));
  }
  object.Set("retired", std::move(files));
  auto lines = std::make_unique<JsonArray>();
  for (const std::string& line : pending) lines->Append(std::make_unique<JsonString>(EncipherLine(line)));
  object.Set("pending", std::move(lines));
  object.Set("totals", TotalsToJson(totals));
  return WriteJson(object, 2) + "\n";
}

bool ServiceJournal::FromJson(std::string_view text) {
  const std::unique_ptr<IJsonValue> value = ParseJson(text);
  const JsonObject* const object = value != nullptr ? value->AsObject() : nullptr;
  if (object == nullptr || ReadNumber(*object, "version") != kVersion) return false;
  *this = ServiceJournal();
  offset = ReadCount(*object, "offset");
  last_sequence = ReadCount(*object, "last_sequence");
  moving = ReadCount(*object, "moving");
  if (const JsonArray* const files = ReadArray(*object, "retired")) {
    for (const auto& item : files->Items()) {
      const JsonObject* const file = item->AsObject();
      if (file == nullptr) return false;
      retired.push_back({ReadCount(*file, "sequence"), ReadCount(*file, "offset"), ReadNumber(*file, "until")});
    }
  }
  if (const JsonArray* const lines = ReadArray(*object, "pending")) {
    for (const auto& line : lines->Items()) {
      ForEachLine(line->Text(), [this](std::string_view plain) {
        if (ParseLockRequest(SplitFields(plain))) pending.emplace_back(plain);
      });
    }
  }
  const IJsonValue* const sums = object->Find("totals");
  const JsonObject* const members = sums != nullptr ? sums->AsObject() : nullptr;
  if (members == nullptr) return false;
  totals.lines = ReadCount(*members, "lines");
  totals.locks = ReadCount(*members, "locks");
  totals.messages = ReadCount(*members, "messages");
  totals.malformed = ReadCount(*members, "malformed");
  ReadCounts(*members, "blocks", &totals.blocks);
  ReadCounts(*members, "statistics", &totals.statistics);
  return true;
}

}  // namespace qiv
