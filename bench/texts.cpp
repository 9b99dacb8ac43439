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

// A class and a function as applications hold them.
std::string OrdinaryScript() {
  return "<?php\n/** Keeps the items of a list. */\nclass ItemList extends Base {\n  private $items = array();\n"
         "  public function add($item, $position = null) {\n    if ($position === null) {\n      $this->items[] = "
         "$item;\n"
         "    } else {\n      array_splice($this->items, (int)$position, 0, array($item));\n    }\n"
         "    return $this->count() > 0 ? sprintf('%d items', count($this->items)) : \"no item\";\n  }\n}\n"
         "function format_title($title, $length = 40) {\n  $title = trim(strip_tags($title));\n"
         "  foreach (explode(' ', $title) as $key => $word) $words[$key] = ucfirst($word);\n"
         "  return substr(implode(' ', $words), 0, $length) . '...';\n}\n?>\n";
}
// Without an end: what is open, waits or grows is as long as the text.
std::string OpenBrackets() { return "<?php ((((((((((((((((((((((((((((((((((((((((((((((((((((((((("; }
std::string OpenCalls() { return "<?php f(f(f(f(f(f(f(f(f(f(f(f(f(f(f(f(f(f(f(f(f(f(f(f(f(f(f("; }
std::string Assignments() { return "<?php $a=$a=$a=$a=$a=$a=$a=$a=$a=$a=$a=$a=$a=$a=$a=$a=$a=$a="; }
std::string GrowingTexts() { return "<?php $a=$a.$a;$a=$a.$a;$a.='xy';$b=$a.$b;$a=$a.$a;?>"; }
std::string GrowingArrays() { return "<?php $a[]=1;$b=$a;$a[]=$a;$b['x']=$a;?>"; }
std::string Pages() { return "<% a=b+c\r\nd=a & \"x\" & chr(65)\r\ne=f(d)\r\n %>"; }

constexpr TextKind kScripts[] = {
    {"ordinary", OrdinaryScript},
    {"open_brackets", OpenBrackets},
    {"open_calls", OpenCalls},
    {"assignments", Assignments},
    {"growing_texts", GrowingTexts},
    {"growing_arrays", GrowingArrays},
    {"pages", Pages},
};

}  // namespace

std::span<const TextKind> TextKinds() { return kKinds; }
std::span<const TextKind> ScriptKinds() { return kScripts; }

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
