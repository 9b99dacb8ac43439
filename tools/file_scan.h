// Judges all files below some paths, with several threads, and tells the results as they are found.
//
// One thread walks ahead; the others take file after file, read it and judge it. Twice as many of them as processors
// are to be used: half may wait for the disk while the others compute. The caller's thread hands the results on.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <semaphore>
#include <string>
#include <vector>

#include "tools/file_judge.h"
#include "tools/tree_walk.h"

namespace qiv {

struct FileScanTotals {
  std::uint64_t met = 0;         ///< files met by the walk
  bool all_met = false;          ///< the walk is over
  std::uint64_t done = 0;        ///< files judged
  std::uint64_t bytes = 0;       ///< read
  std::uint64_t judged = 0;      ///< files shown to the detectors
  std::uint64_t findings = 0;    ///< files with a finding that is not weak
  std::uint64_t suspicious = 0;  ///< files with a weak one
  std::uint64_t errors = 0;
  std::uint64_t links = 0;  ///< passed over
  bool stopped = false;
};

struct FileScanResult {
  std::string path;
  FileVerdict verdict;
};

class CFileScan {
 public:
  /// For every finding and error, as soon as it is known: the order is that of the files' being done.
  using OnResult = std::function<void(const FileScanResult&)>;
  /// Some times a second; false stops the scan soon: files under way are finished, the rest is left.
  using OnTick = std::function<bool(const FileScanTotals&)>;

  /// `jobs`: processors to use, at least 1.
  CFileScan(const CFileJudge& judge, unsigned jobs);

  /// Scans once. Both functions are called in this thread.
  FileScanTotals Run(std::vector<std::string> paths, TreeWalkOptions options, const OnResult& on_result,
                     const OnTick& on_tick);

 private:
  void Walk(CTreeWalk* walk);
  void Work();
  void Finish(FileScanResult result, std::unique_lock<std::mutex>* lock);

  const CFileJudge& judge_;
  const unsigned jobs_;
  std::counting_semaphore<> cores_;
  std::atomic<bool> stop_{false};

  std::mutex lock_;  // guards what follows
  std::condition_variable room_;
  std::condition_variable work_;
  std::condition_variable told_;
  std::condition_variable news_;
  std::deque<CTreeWalk::Step> queue_;  // that nobody has begun
  std::vector<FileScanResult> found_;  // not told yet
  bool walked_ = false;                // nothing more will come
  unsigned workers_ = 0;               // that have not ended
  FileScanTotals totals_;
};

}  // namespace qiv
