// The multipart reader and upload protection over any bytes; the first line is the Content-Type. Views inside the body,
// bounded work, and a decision with its texts or none.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "checks/upload_check.h"
#include "common/multipart.h"
#include "config/website_config.h"
#include "tests/checks/lone_context.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

bool Inside(std::string_view part, std::string_view text) {
  return part.empty() || (part.data() >= text.data() && part.data() + part.size() <= text.data() + text.size());
}

// Everything on, but for the scan for webshells, which has targets of its own.
std::shared_ptr<const qiv::WebsiteConfig> Config() {
  auto config = std::make_shared<qiv::WebsiteConfig>();
  config->base.upload = config->base.upload_file = config->base.upload_exe = true;
  config->base.upload_types = ",*,!php,";
  config->request.photo = config->request.photo_get = 1;
  config->request.photo_post = true;
  return config;
}

void CheckUpload(std::string_view type, std::string_view body) {
  static const std::shared_ptr<const qiv::WebsiteConfig> config = Config();
  static qiv::CLoneContext lone(*config);
  qiv::RequestFacts facts;
  facts.content_type = type;
  facts.raw_url = type;
  facts.raw_body = body;
  qiv::CheckResult result;
  qiv::UploadCheck(facts, lone.Context(), result);
  const bool blocked = result.status == qiv::kBlocked;
  Require(blocked || result.status == qiv::kUndecided);
  Require(blocked != result.reason.empty() && blocked != result.item.empty() && result.request.attack == blocked);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::string_view type = text.substr(0, text.find('\n'));
  const std::string_view body = text.substr(type.size());
  std::size_t parts = 0;
  std::size_t bytes = 0;
  const qiv::MultipartFault fault = qiv::ForEachPart(type, body, [&](const qiv::MultipartPart& part) {
    Require(Inside(part.text, body) && Inside(part.head_text, body) && Inside(part.content, body) &&
            Inside(part.late_content, body));
    Require(Inside(part.head.name, body) && Inside(part.head.content_type, body));
    for (std::size_t i = 0; i < part.head.file_name_count; ++i) {
      Require(!part.head.file_names[i].empty() && Inside(part.head.file_names[i], body));
    }
    bytes += part.content.size();
    ++parts;
    return true;
  });
  Require(bytes <= (qiv::kMostPasses + 1) * (size + 1024));
  const bool delimited = body.find("--") != std::string_view::npos ||
                         (body.find("\r\n") != std::string_view::npos && body.find('=') != std::string_view::npos);
  if (fault == qiv::MultipartFault::kNone && !body.empty() && !delimited) {
    Require(parts == 1);  // without a delimiter the body is one part
  }
  CheckUpload(type, body);
  std::size_t visited = 0;
  qiv::ForEachPart(type, body, [&](const qiv::MultipartPart&) { return ++visited < 2; });
  Require(visited == (parts < 2 ? parts : 2));
  return 0;
}
