// Block pages as text.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "checks/check_context.h"
#include "checks/check_result.h"
#include "checks/request_facts.h"

namespace qiv {

/// The page that the site's settings ask for, in UTF-8 (a whole page or prepared page in another encoding stays as it
/// is). Sets result.request.custom_page when a whole custom page was used; announces the client when the page has the
/// password form. Everything that comes from the request or a rule is escaped for HTML text and quoted attributes
/// alike. `appended` follows the page as it stands; "{{charset}}" names what page and appended text go out in.
std::string RenderPage(const RequestFacts& facts, const CheckContext& context, CheckResult& result,
                       std::string_view appended = {});

struct Placeholder {
  std::string_view name;  ///< with its braces
  std::string_view value;
};

/// Replaces the placeholders in one pass: what was put in is not looked at again, so a value that holds a placeholder's
/// name stays as it is.
std::string Substitute(std::string_view text, std::span<const Placeholder> placeholders);

}  // namespace qiv
