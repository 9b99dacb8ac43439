// config/_exempt.db: findings that the site does not want, each for one rule, on one path and in one parameter, or
// everywhere. The site's own file: no update of rules touches it. Its form: docs/file-formats.md.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qiv {

struct Exemption {
  std::string rule;       ///< as an event names it; for findings without one, the name of the check
  std::string path;       ///< whole and decoded, beginning with "/"; empty: every path
  std::string parameter;  ///< name in a query, form, JSON text or multipart form; empty: wherever it is found
  std::string date;       ///< when it was made, as "2026-11-22"; may be empty
  std::string remark;

  bool operator==(const Exemption&) const = default;
};

/// A line of the file, without its end: five fields divided by tabs, "-" for an empty one. UTF-8. Control bytes become
/// blanks.
std::string ExemptionLine(const Exemption& exemption);

/// Immutable; thread safe. Held in GBK.
class CExemptions {
 public:
  static constexpr std::size_t kMost = 10'000;
  static constexpr std::size_t kFileMaxBytes = 16U << 20;

  /// The exemptions of a file's text, as it holds them (UTF-8). Empty lines and those that begin with "#" say nothing.
  /// False, with the number of the first bad line, when one has no rule, a path that does not begin with "/", or
  /// another number of fields.
  static bool Read(std::string_view text, std::vector<Exemption>* exemptions, std::size_t* bad_line);

  CExemptions() = default;
  explicit CExemptions(std::vector<Exemption> exemptions);

  bool Empty() const { return exemptions_.empty(); }
  /// Those of a rule or a check that count on the path; `path` is decoded and in GBK. ASCII letters of paths are the
  /// same in either case, as they are to the server.
  std::vector<const Exemption*> Find(std::string_view rule, std::string_view path) const;

 private:
  std::vector<Exemption> exemptions_;
};

}  // namespace qiv
