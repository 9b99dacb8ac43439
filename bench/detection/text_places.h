// A text put into a request at one place, and judged as the module would: by upload protection, file inclusion,
// injection and malicious code.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "config/website_config.h"
#include "engines/attacks/attack_rules.h"
#include "engines/injection/injection_library.h"
#include "engines/webshell/webshell_scan.h"

namespace qiv {

enum class Place {
  kQuery,     ///< "?id=1&q=<percent-encoded>&page=2"
  kForm,      ///< the same as a form body, a blank written "+"
  kJson,      ///< {"id":1,"q":"<escaped>","page":2} as a body
  kHeader,    ///< a header's value, unencoded
  kXml,       ///< <order><id>1</id><q>escaped</q></order> as a body
  kCookie,    ///< "id=1; q=<percent-encoded>"
  kReferer,   ///< "https://www.example.com/page?q=<percent-encoded>"
  kPath,      ///< "/page/<percent-encoded>"
  kRawQuery,  ///< the text is a whole query as sent
  kRawBody,   ///< the text is a whole body as sent
  kFile,      ///< the content of a file in a multipart form
  kPicture,   ///< the same, the file called a picture
  kField,     ///< a field of a multipart form
};

/// What blocked.
enum class Mechanism { kNone, kDetector, kKeyword, kEvent, kScriptTag, kScriptUrl, kUpload, kFamily };

struct Verdict {
  Mechanism mechanism = Mechanism::kNone;
  std::string rule;    ///< identifier, empty for XSS
  std::string reason;  ///< as on the page; of a webshell as in the log
};

/// Settings and library as loaded; shared by all requests.
struct Protection {
  std::shared_ptr<const WebsiteConfig> config;
  std::shared_ptr<const InjectionLibrary> library;
  std::shared_ptr<const CQivLibs> webshells;
  std::shared_ptr<const CAttackRules> attacks;
};

/// Null pointers, with the reason in *error, when the module directory holds no installation that can be loaded.
Protection LoadProtection(const std::string& module_directory, std::string* error);

/// The place's name on the command line; false when there is none of that name.
bool PlaceFromName(std::string_view name, Place* place);
std::string_view PlaceName(Place place);

/// By whom. Findings of the search for webshells count as the detector's.
enum class Judges { kBoth, kFamilies, kInjection, kWebshells };
Verdict Judge(const Protection& protection, Place place, std::string_view text, Judges by = Judges::kBoth);

/// "%0D", "%0A" and "%00" become the bytes they stand for: how files of texts write them. Nothing else is decoded.
std::string UnescapeLine(std::string_view line);

}  // namespace qiv
