// A text that many copies share.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace qiv {

/// Value semantics at the price of a counter: copies share one immutable buffer, assigning gives this copy a new one.
/// So a request record with a body of 100 MiB can be copied into and out of the stored context without copying the
/// body.
class CSharedText {
 public:
  CSharedText() = default;
  CSharedText(std::string text)  // NOLINT: converting on purpose
      : text_(text.empty() ? nullptr : std::make_shared<const std::string>(std::move(text))) {}

  std::string_view View() const { return text_ ? std::string_view(*text_) : std::string_view(); }
  operator std::string_view() const { return View(); }  // NOLINT: converting on purpose
  bool Empty() const { return text_ == nullptr; }

 private:
  std::shared_ptr<const std::string> text_;
};

}  // namespace qiv
