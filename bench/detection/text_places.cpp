#include "bench/detection/text_places.h"

#include <cstdio>
#include <utility>

#include "checks/badcode_check.h"
#include "checks/body_text.h"
#include "checks/check_result.h"
#include "checks/file_inclusion_check.h"
#include "checks/injection_check.h"
#include "checks/request_facts.h"
#include "checks/upload_check.h"
#include "checks/webshell_check.h"
#include "common/char_set.h"
#include "common/text.h"
#include "config/qiv_config.h"
#include "tests/checks/lone_context.h"

namespace qiv {
namespace {

constexpr std::pair<Place, std::string_view> kPlaces[] = {
    {Place::kQuery, "query"},   {Place::kForm, "form"},          {Place::kJson, "json"},
    {Place::kHeader, "header"}, {Place::kRawQuery, "raw-query"}, {Place::kRawBody, "raw-body"},
    {Place::kXml, "xml"},       {Place::kCookie, "cookie"},      {Place::kReferer, "referer"},
    {Place::kPath, "path"},     {Place::kFile, "file"},          {Place::kPicture, "picture"},
    {Place::kField, "field"},
};

std::string PercentEncode(std::string_view text, bool blank_as_plus) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (IsWordByte(c) || c == '-' || c == '.' || c == '~') {
      encoded += c;
    } else if (blank_as_plus && c == ' ') {
      encoded += '+';
    } else {
      encoded += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return encoded;
}

std::string JsonEscape(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      escaped += {'\\', c};
    } else if (c == '\n') {
      escaped += "\\n";
    } else if (c == '\r') {
      escaped += "\\r";
    } else if (c == '\t') {
      escaped += "\\t";
    } else if (byte < 0x20) {
      char code[8];
      std::snprintf(code, sizeof code, "\\u%04x", byte);
      escaped += code;
    } else {
      escaped += c;
    }
  }
  return escaped;
}

std::string XmlEscape(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '<':
        escaped += "&lt;";
        break;
      case '&':
        escaped += "&amp;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

constexpr std::string_view kFormType = "multipart/form-data; boundary=----FormBoundary7MA4YWxk";

/// A multipart form with two fields, the second one with `parameters` behind its name.
std::string Form(std::string_view parameters, std::string_view content) {
  std::string form =
      "------FormBoundary7MA4YWxk\r\nContent-Disposition: form-data; name=\"title\"\r\n\r\nSummer\r\n"
      "------FormBoundary7MA4YWxk\r\nContent-Disposition: form-data; name=\"photo\"";
  form.append(parameters).append("\r\n\r\n").append(content);
  form += "\r\n------FormBoundary7MA4YWxk--\r\n";
  return form;
}

std::string Query(std::string_view raw) { return std::string(Trim(NormalizeText(std::string(Trim(raw))))); }

Mechanism MechanismOf(const CheckResult& result) {
  if (result.status != kBlocked) return Mechanism::kNone;
  if (result.kind == kKindBadcode || result.kind == kKindFileInclusion) return Mechanism::kFamily;
  if (result.kind == kKindWebshell) return Mechanism::kDetector;
  const std::string& reason = result.reason;
  if (result.item.starts_with("XSS")) {
    if (reason.find("HTML event") != std::string::npos) return Mechanism::kEvent;
    return reason.find("Script label") != std::string::npos ? Mechanism::kScriptTag : Mechanism::kScriptUrl;
  }
  return reason.find("Cloud matching") != std::string::npos ? Mechanism::kDetector : Mechanism::kKeyword;
}

}  // namespace

Protection LoadProtection(const std::string& module_directory, std::string* error) {
  CQivConfig config(module_directory.ends_with('/') ? module_directory : module_directory + "/");
  config.RefreshTick();
  if (!config.IsConfigValid()) {
    *error = ConfigStatusText(config.LastStatus());
    return {};
  }
  auto english = std::make_shared<WebsiteConfig>(*config.Current());
  english->language = Language::kEnglish;  // MechanismOf reads the texts
  const std::shared_ptr<const AttackRuleSet> rules = config.AttackRules();
  return {std::move(english), config.Library(), config.Webshells(), {rules, &rules->attacks}};
}

bool PlaceFromName(std::string_view name, Place* place) {
  for (const auto& [known, known_name] : kPlaces) {
    if (known_name == name) {
      *place = known;
      return true;
    }
  }
  return false;
}

std::string_view PlaceName(Place place) {
  for (const auto& [known, name] : kPlaces) {
    if (known == place) return name;
  }
  return {};
}

Verdict Judge(const Protection& protection, Place place, std::string_view text, Judges by) {
  CLoneContext lone(*protection.config, protection.webshells.get(), nullptr, protection.attacks.get());
  const CheckContext context = lone.With(*protection.library);
  RequestFacts facts;
  facts.raw_url = "/page.aspx";
  facts.path = facts.raw_url;
  std::string form;
  std::string query;
  std::string body;
  switch (place) {
    case Place::kQuery:
      query = "id=1&q=" + PercentEncode(text, false) + "&page=2";
      break;
    case Place::kForm:
      facts.content_type = "application/x-www-form-urlencoded";
      body = "id=1&q=" + PercentEncode(text, true) + "&page=2";
      break;
    case Place::kJson:
      facts.content_type = "application/json";
      body = "{\"id\":1,\"q\":\"" + JsonEscape(text) + "\",\"page\":2}";
      break;
    case Place::kHeader:
      facts.all_headers = text;
      facts.headers.push_back({40, "User-Agent", std::string(text)});
      break;
    case Place::kXml:
      facts.content_type = "text/xml";
      body = "<?xml version=\"1.0\"?><order><id>1</id><q>" + XmlEscape(text) + "</q></order>";
      break;
    case Place::kCookie:
      facts.all_headers = "id=1; q=" + PercentEncode(text, false);
      facts.headers.push_back({25, "Cookie", facts.all_headers});
      break;
    case Place::kReferer:
      facts.all_headers = "https://www.example.com/page?q=" + PercentEncode(text, false);
      facts.headers.push_back({36, "Referer", facts.all_headers});
      break;
    case Place::kPath:
      facts.raw_url = "/page/" + PercentEncode(text, false);
      facts.path = NormalizeText(facts.raw_url);
      break;
    case Place::kRawQuery:
      query = text;
      break;
    case Place::kRawBody:
      body = text;
      break;
    case Place::kFile:
      form = Form("; filename=\"summer.dat\"\r\nContent-Type: application/octet-stream", text);
      break;
    case Place::kPicture:
      form = Form("; filename=\"summer.jpg\"\r\nContent-Type: image/jpeg", text);
      break;
    case Place::kField:
      form = Form("", text);
      break;
  }
  if (!query.empty()) facts.raw_url += "?" + query;
  facts.query = Query(query);
  facts.raw_body = form.empty() ? body : form;
  if (!form.empty()) facts.content_type = kFormType;
  SetBodyText(true, &facts);
  CheckResult result;
  if (!form.empty()) {
    if (by == Judges::kBoth || by == Judges::kInjection) UploadCheck(facts, context, result);
    if (result.status == kBlocked) return {Mechanism::kUpload, result.rule, result.reason};
  }
  const bool families = by == Judges::kBoth || by == Judges::kFamilies;
  if (by == Judges::kWebshells) WebshellCheck(facts, context, result);
  if (families) FileInclusionCheck(facts, context, result);
  if (result.status != kBlocked && (by == Judges::kBoth || by == Judges::kInjection)) {
    InjectionCheck(facts, context, result);
  }
  if (result.status != kBlocked && families) BadcodeCheck(facts, context, result);
  const Mechanism mechanism = MechanismOf(result);
  const bool detail = by == Judges::kWebshells || mechanism == Mechanism::kFamily;
  return {mechanism, result.rule, detail ? result.detail : result.reason};
}

std::string UnescapeLine(std::string_view line) {
  std::string text;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const std::string_view code = line.substr(i, 3);
    if (code == "%0D" || code == "%0A" || code == "%00") {
      text += code == "%0D" ? '\r' : code == "%0A" ? '\n' : '\0';
      i += 2;
    } else {
      text += line[i];
    }
  }
  return text;
}

}  // namespace qiv
