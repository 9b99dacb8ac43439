#include "bench/texts.h"

namespace qiv::bench {
namespace {

std::string Ordinary() {
  return "name=Ann O Neill&city=Coeur d Alene&message=Please select the blue one and send it before the 12th, or "
         "call us; the order by phone is fine too. Thanks for the update on the table reservation&price=12.50 ";
}

// Names without a tag, then a tag that never ends, so that every occurrence is looked at.
std::string EventNames() { return " onload onerror onclick onload= onerror=1"; }
std::string OpenTags() { return "<"; }
std::string TagsAndEvents() { return "<a onload "; }
std::string Quotes() { return "'"; }
std::string MixedQuotes() { return "'\"\\'"; }
std::string Dashes() { return "--"; }
std::string OpenComments() { return "/*"; }
std::string Comments() { return "/**/'*/"; }
std::string CutWords() { return "and or union from where select , ; ( ' and'"; }
std::string JoinedCutWords() { return "andorandunion"; }
std::string ScriptTags() { return "<script <script\t"; }
std::string JavascriptUrls() { return "<a b=javascript:"; }
std::string Blanks() { return " "; }
std::string Ampersands() { return "&"; }
std::string LeadBytes() { return "\x81"; }

constexpr TextKind kKinds[] = {
    {"ordinary", Ordinary},
    {"event_names", EventNames},
    {"open_tags", OpenTags},
    {"tags_events", TagsAndEvents},
    {"quotes", Quotes},
    {"mixed_quotes", MixedQuotes},
    {"dashes", Dashes},
    {"open_comments", OpenComments},
    {"comments", Comments},
    {"cut_words", CutWords},
    {"joined_cut_words", JoinedCutWords},
    {"script_tags", ScriptTags},
    {"javascript_urls", JavascriptUrls},
    {"blanks", Blanks},
    {"ampersands", Ampersands},
    {"lead_bytes", LeadBytes},
};

}  // namespace

std::span<const TextKind> TextKinds() { return kKinds; }

std::string Repeat(const std::string& unit, std::size_t bytes) {
  std::string text;
  text.reserve(bytes + unit.size());
  while (text.size() < bytes) text += unit;
  text.resize(bytes);
  return text;
}

std::string OrdinaryForm(std::size_t bytes) {
  return Repeat("field=some+ordinary+words%2C+a+date+2024-05-17&count=12&", bytes);
}

std::string OrdinaryJson(std::size_t bytes) {
  const std::string unit = R"({"id":17,"title":"An ordinary title","tags":["red","blue"],"done":false},)";
  std::string text = "[";
  while (text.size() + unit.size() + 20 < bytes) text += unit;
  text += R"({"fill":")";
  while (text.size() + 3 < bytes) text += 'x';
  text += "\"}]";
  return text;
}

}  // namespace qiv::bench
