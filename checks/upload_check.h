// Upload protection: names and content of uploaded files, and images that are none.
#pragma once

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// Whether the body carries files: parts of a form, or one file that is the whole body (Content-Type
/// "application/octet-stream", "image/...", "application/zip" and the like). Other bodies are forms, JSON, XML or text.
bool IsUploadBody(const RequestFacts& facts);

/// Bytes of script text that one request has scanned for webshells, over all its files: a byte of it takes up to a
/// microsecond. What is over it is refused where it could be run (see upload_check.cpp).
inline constexpr std::size_t kScannedScript = 2 * 1024 * 1024;

/// Leaves status at 0 or sets it to 2. Reads context.config, raw_body, raw_url, content_type and webshells. Linear in
/// the request; copies only what is encoded.
void UploadCheck(const RequestFacts& facts, const CheckContext& context, CheckResult& result);

}  // namespace qiv
