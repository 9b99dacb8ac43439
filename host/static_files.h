// The files of a folder as a site.
#pragma once

#include <string>

#include "host/pipeline.h"

namespace qiv::host {

/// GET and HEAD of files below a root: types, default documents, single ranges, conditions by date and tag. Names that
/// begin with a dot (but /.well-known), device names, streams and program sources are not found. Never lists a folder.
class CStaticFiles final : public IRequestHandler {
 public:
  /// `root` is an existing folder, UTF-8, without a separator at its end.
  explicit CStaticFiles(std::string root) : root_(std::move(root)) {}

  void Execute(CHostContext& context) override;

 private:
  const std::string root_;
};

/// The part of a file that a Range header asks for.
enum class RangeOutcome { kWhole, kPart, kUnsatisfiable };
RangeOutcome ParseRange(std::string_view header, std::uint64_t size, std::uint64_t* first, std::uint64_t* last);

/// Whether the decoded path (UTF-8, canonical, beginning with "/") may name a file of the site.
bool IsServablePath(std::string_view path);

}  // namespace qiv::host
