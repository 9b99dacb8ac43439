#include "bench/webshell_texts.h"

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <utility>

#include "bench/texts.h"

namespace qiv::bench {
namespace {

constexpr std::string_view kPhp = "<?php\n";
constexpr std::string_view kAsp = "<%\n";

/// `head`, then `unit` over and over.
std::string Fill(std::string_view head, const std::string& unit, std::size_t bytes) {
  return std::string(head.substr(0, bytes)) + Repeat(unit, bytes - std::min(bytes, head.size()));
}

template <const std::string_view& head, const auto& unit>
std::string Units(const CSignatureLibrary&, std::size_t bytes) {
  return Fill(head, std::string(unit), bytes);
}

constexpr std::string_view kNoHead = "";
constexpr std::string_view kProse =
    "Please send the blue one before the 12th, or call us; the order by phone is fine too. We include the table and "
    "shell out for the rest. ";
constexpr std::string_view kOrdinaryPhp =
    "class Shop { private $items = array(); public function add($id, $count = 1) {\n"
    "  // adds to what is there\n  if (!isset($this->items[$id])) { $this->items[$id] = 0; }\n"
    "  $this->items[$id] += (int)$count; return $this->items[$id]; }\n"
    "  public function show() { foreach ($this->items as $id => $n) { echo htmlspecialchars(\"$id: $n\"), '<br>'; } } "
    "}\n"
    "$shop = new Shop(); if (isset($_POST['id'])) { $shop->add($_POST['id'], $_POST['n']); }\n";
constexpr std::string_view kOrdinaryAsp =
    "Dim rs, i\nSet rs = conn.Execute(\"select * from t where id=\" & CLng(Request(\"id\")))\n"
    "Do While Not rs.EOF\n  Response.Write Server.HTMLEncode(rs(\"name\")) & \"<br>\"\n  rs.MoveNext\nLoop\n";

constexpr std::string_view kOpenBraces = "(";
constexpr std::string_view kOpenIndexes = "$a[";
constexpr std::string_view kOpenBlocks = "if(1){";
constexpr std::string_view kCallsInCalls = "f(trim(";
constexpr std::string_view kAppend = "$a.='xy';";
constexpr std::string_view kDouble = "$a=$a.$a;";
constexpr std::string_view kArrays = "$a[]=1;$b=$a;";
constexpr std::string_view kNested = "$a=array($a,$a);";
constexpr std::string_view kFunctions = "function f(){g(f());}";
constexpr std::string_view kInterpolations = "\"{$a[\"";
constexpr std::string_view kHeredocs = "<<<A\n";
constexpr std::string_view kComments = "/*";
constexpr std::string_view kRequests = "$a=$_POST[1].$a;";
constexpr std::string_view kPhpTags = "<?php ?>";
constexpr std::string_view kAspTags = "<%";
constexpr std::string_view kScriptTags = "<script runat=";
constexpr std::string_view kLeadBytes = "\x81";
constexpr std::string_view kAspJoins = "x=x&\"a\"&\"b\"\n";
constexpr std::string_view kAspChars = "chr(101)&";
constexpr std::string_view kAspAssignments = "a=request(b)\nb=a\n";
constexpr std::string_view kAspBraces = "execute(";

std::string ManyVariables(const CSignatureLibrary&, std::size_t bytes) {
  std::string text(kPhp);
  for (std::size_t i = 1; text.size() < bytes; ++i) {
    text += "$v" + std::to_string(i) + "=$v" + std::to_string(i - 1) + ".'x';";
  }
  text.resize(bytes);
  return text;
}

std::string LongLiteral(const CSignatureLibrary&, std::size_t bytes) {
  return Fill("<?php $a='", "x", bytes - 2) + "';";
}

std::string Base64(std::string_view text) {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string coded;
  for (std::size_t i = 0; i + 2 < text.size(); i += 3) {
    const auto byte = [&](std::size_t k) {
      return static_cast<std::uint32_t>(static_cast<unsigned char>(text[i + k]));
    };
    const std::uint32_t bits = byte(0) << 16 | byte(1) << 8 | byte(2);
    for (const int shift : {18, 12, 6, 0}) coded += kDigits[bits >> shift & 63];
  }
  return coded;
}

std::string Base64Layers(const CSignatureLibrary&, std::size_t bytes) {
  std::string code = "echo 1;";
  while (true) {
    code.resize((code.size() + 2) / 3 * 3, ' ');
    std::string next = "eval(base64_decode('" + Base64(code) + "'));";
    if (kPhp.size() + next.size() > bytes) break;
    code = std::move(next);
  }
  return Fill(std::string(kPhp) + code, " ", bytes);
}

/// Every term without its last letter, again and again.
std::string CutTerms(const CSignatureLibrary& library, std::size_t bytes) {
  std::string unit;
  for (const SignatureRule& rule : library.Rules()) {
    for (const std::string& term : rule.terms) unit += term.substr(0, term.size() - 1);
  }
  return Fill(kNoHead, unit, bytes);
}

/// The first letters of every term, each many times.
std::string FirstLetters(const CSignatureLibrary& library, std::size_t bytes) {
  std::string unit;
  for (const SignatureRule& rule : library.Rules()) {
    for (const std::string& term : rule.terms) unit += Repeat(term.substr(0, 3), 30);
  }
  return Fill(kNoHead, unit, bytes);
}

/// Every sequence rule up to its last term, which never comes, or too late.
std::string CutSequences(const CSignatureLibrary& library, std::size_t bytes) {
  std::string unit;
  for (const SignatureRule& rule : library.Rules()) {
    const bool is_near = rule.kind == PatternKind::kNearSequence;
    if (!is_near && rule.kind != PatternKind::kSequence) continue;
    for (int again = 0; again < 3; ++again) {
      for (std::size_t i = 0; i + 1 < rule.terms.size(); ++i) unit += rule.terms[i];
    }
    if (is_near) unit += std::string(CSignatureLibrary::kNearGap + 1, '.') + rule.terms.back();
  }
  return Fill(kNoHead, unit, bytes);
}

constexpr WebshellText kTexts[] = {
    {"prose", Units<kNoHead, kProse>},
    {"ordinary PHP", Units<kPhp, kOrdinaryPhp>},
    {"ordinary ASP", Units<kAsp, kOrdinaryAsp>},
    {"terms without their last letter", CutTerms},
    {"first letters of terms", FirstLetters},
    {"sequences without their last term", CutSequences},
    {"PHP: `(`", Units<kPhp, kOpenBraces>},
    {"PHP: `$a[`", Units<kPhp, kOpenIndexes>},
    {"PHP: `if(1){`", Units<kPhp, kOpenBlocks>},
    {"PHP: `f(trim(`", Units<kPhp, kCallsInCalls>},
    {"PHP: `$a.='xy';`", Units<kPhp, kAppend>},
    {"PHP: `$a=$a.$a;`", Units<kPhp, kDouble>},
    {"PHP: `$a[]=1;$b=$a;`", Units<kPhp, kArrays>},
    {"PHP: `$a=array($a,$a);`", Units<kPhp, kNested>},
    {"PHP: `function f(){g(f());}`", Units<kPhp, kFunctions>},
    {"PHP: `\"{$a[\"`", Units<kPhp, kInterpolations>},
    {"PHP: `<<<A`", Units<kPhp, kHeredocs>},
    {"PHP: `/*`", Units<kPhp, kComments>},
    {"PHP: `$a=$_POST[1].$a;`", Units<kPhp, kRequests>},
    {"PHP: many variables", ManyVariables},
    {"PHP: one long literal", LongLiteral},
    {"PHP: layers of base64", Base64Layers},
    {"PHP: `<?php ?>`", Units<kNoHead, kPhpTags>},
    {"ASP: `x=x&\"a\"&\"b\"`", Units<kAsp, kAspJoins>},
    {"ASP: `chr(101)&`", Units<kAsp, kAspChars>},
    {"ASP: `a=request(b)`, `b=a`", Units<kAsp, kAspAssignments>},
    {"ASP: `execute(`", Units<kAsp, kAspBraces>},
    {"ASP: `<%`", Units<kNoHead, kAspTags>},
    {"ASP: `<script runat=`", Units<kAsp, kScriptTags>},
    {"lead bytes", Units<kPhp, kLeadBytes>},
};

}  // namespace

std::span<const WebshellText> WebshellTexts() { return kTexts; }

}  // namespace qiv::bench
