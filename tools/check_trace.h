// What each check made of a request, in the order of the check table.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "common/json.h"
#include "module/pipeline.h"

namespace qiv {

/// Watches one request at a time.
class CCheckTrace final : public ICheckObserver {
 public:
  /// A part of the request that a check looked at: "URL", and what it was. In UTF-8.
  using Part = std::pair<std::string, std::string>;

  /// Before each request.
  void Begin() { asked_.clear(); }
  void OnCheck(const CheckRow& row, CheckVerdict verdict, const RequestFacts& facts,
               const CheckContext& context) override;

  /// Of each row of the table: verdict, or "off", or "not asked", and what it looked at. Lines to read.
  std::string Text(const WebsiteConfig& config) const;
  /// The same as an array of objects with "check", "verdict" and "looked_at".
  std::unique_ptr<JsonArray> Json(const WebsiteConfig& config) const;

 private:
  struct Asked {
    CheckVerdict verdict;
    std::vector<Part> parts;
  };
  const char* VerdictOf(const CheckRow& row, const WebsiteConfig& config) const;
  const std::vector<Part>& PartsOf(const CheckRow& row) const;

  std::map<std::string_view, Asked> asked_;  ///< by name; of several notifications the one that decided
};

}  // namespace qiv
