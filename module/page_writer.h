// Answers a request with a page instead of the application's response.
#pragma once

#include <string_view>

#include "checks/check_result.h"
#include "checks/request_facts.h"
#include "module/stored_context.h"

namespace qiv {

struct PageOptions {
  std::string_view extra_text;  ///< appended after the rendered page; when not empty the status stays as it is
  bool render = true;           ///< false: the extra text alone
  bool reset_response = false;  ///< clear what the response holds first
};

/// Writes the page, marks the request, and records the event: once a request, however many pages are written for it.
void WritePage(RequestFacts& facts, const CheckResult& result, CStoredContexts& contexts, const PageOptions& options);

/// Status code that a page goes out with.
int PageStatus(const RequestFacts& facts, const CheckResult& result);

/// The page in the encoding it goes out in.
struct EncodedPage {
  std::string text;
  std::string_view charset;  ///< "gbk" or "utf-8"
};
EncodedPage EncodePage(std::string page, const RequestFacts& facts);

}  // namespace qiv
