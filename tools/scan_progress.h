// The progress bar of `scan`, on a terminal only.
#pragma once

#include <cstdint>
#include <string>

#include "tools/file_scan.h"

namespace qiv {

/// "1,234,567".
std::string Grouped(std::uint64_t number);

/// "0.3 s", "12 s", "3:05", "1:02:03".
std::string Duration(double seconds);

/// The bar as a line of at most `width` columns; `seconds` since the scan began.
std::string ProgressLine(const FileScanTotals& totals, double seconds, int width);

class CScanProgress {
 public:
  /// `begin` on the clock of MonotonicMicroseconds.
  explicit CScanProgress(std::int64_t begin) : begin_(begin) {}
  ~CScanProgress() { Clear(); }
  CScanProgress(const CScanProgress&) = delete;
  CScanProgress& operator=(const CScanProgress&) = delete;

  /// Draws the bar on standard error when that is a terminal.
  void Show(const FileScanTotals& totals, std::int64_t now);
  /// Takes it away, before anything else is written.
  void Clear();

 private:
  const std::int64_t begin_;
  std::size_t shown_ = 0;  // columns
};

}  // namespace qiv
