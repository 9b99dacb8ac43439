#include "tools/file_scan.h"

#include <chrono>
#include <exception>
#include <new>
#include <thread>
#include <utility>

namespace qiv {
namespace {

/// Some 150 bytes each: the walk runs ahead, so that it soon knows how many files there are, but not without bound.
constexpr std::size_t kMostAhead = std::size_t{1} << 19;

/// Findings that wait for somebody slow to read them.
constexpr std::size_t kMostUntold = 1024;

constexpr std::chrono::milliseconds kTick{100};

FileVerdict JudgeWithoutThrowing(const CFileJudge& judge, const std::string& path, std::counting_semaphore<>* cores,
                                 const std::atomic<bool>& stop) {
  FileVerdict failed;
  try {
    return judge.Judge(path, cores, stop);
  } catch (const std::bad_alloc&) {
    failed.error = "there is not enough memory to judge it";
  } catch (const std::exception& error) {
    failed.error = std::string("cannot be judged: ") + error.what();
  }
  return failed;
}

}  // namespace

CFileScan::CFileScan(const CFileJudge& judge, unsigned jobs)
    : judge_(judge), jobs_(jobs), cores_(static_cast<std::ptrdiff_t>(jobs)) {}

FileScanTotals CFileScan::Run(std::vector<std::string> paths, TreeWalkOptions options, const OnResult& on_result,
                              const OnTick& on_tick) {
  CTreeWalk walk(std::move(paths), std::move(options));
  std::vector<std::thread> threads;
  const unsigned workers = 2 * jobs_;
  workers_ = workers;  // before the first of them can end
  threads.emplace_back([this, &walk] { Walk(&walk); });
  for (unsigned i = 0; i < workers; ++i) threads.emplace_back([this] { Work(); });
  auto next_tick = std::chrono::steady_clock::now() + kTick;
  for (bool over = false; !over;) {
    FileScanTotals totals;
    std::vector<FileScanResult> found;
    {
      std::unique_lock<std::mutex> lock(lock_);
      news_.wait_until(lock, next_tick, [this] { return workers_ == 0 || !found_.empty(); });
      over = workers_ == 0;
      found.swap(found_);
      totals = totals_;
    }
    told_.notify_all();
    for (const FileScanResult& result : found) on_result(result);
    if (std::chrono::steady_clock::now() < next_tick) continue;
    next_tick = std::chrono::steady_clock::now() + kTick;
    if (!stop_ && !on_tick(totals)) {
      stop_ = true;
      const std::lock_guard<std::mutex> lock(lock_);
      room_.notify_all();
      work_.notify_all();
    }
  }
  for (std::thread& thread : threads) thread.join();
  totals_.stopped = stop_;
  return totals_;
}

void CFileScan::Walk(CTreeWalk* walk) {
  CTreeWalk::Step step;
  while (!stop_ && walk->Next(&step)) {
    std::unique_lock<std::mutex> lock(lock_);
    room_.wait(lock, [this] { return stop_ || queue_.size() < kMostAhead; });
    if (stop_) return;
    queue_.push_back(std::move(step));
    ++totals_.met;
    lock.unlock();
    work_.notify_one();
  }
  const std::lock_guard<std::mutex> lock(lock_);
  totals_.all_met = !stop_;
  totals_.links = walk->LinksPassedOver();
  walked_ = true;
  work_.notify_all();
}

void CFileScan::Work() {
  std::unique_lock<std::mutex> lock(lock_);
  while (true) {
    work_.wait(lock, [this] { return stop_ || walked_ || !queue_.empty(); });
    if (stop_ || queue_.empty()) break;
    CTreeWalk::Step step = std::move(queue_.front());
    queue_.pop_front();
    if (queue_.size() + 1 == kMostAhead) room_.notify_one();
    lock.unlock();
    FileScanResult result{std::move(step.path), {}};
    result.verdict.error = std::move(step.error);
    if (result.verdict.error.empty()) result.verdict = JudgeWithoutThrowing(judge_, result.path, &cores_, stop_);
    lock.lock();
    Finish(std::move(result), &lock);
  }
  if (--workers_ == 0) news_.notify_one();
}

void CFileScan::Finish(FileScanResult result, std::unique_lock<std::mutex>* lock) {
  const FileVerdict& verdict = result.verdict;
  ++totals_.done;
  totals_.bytes += verdict.bytes;
  totals_.judged += verdict.judged;
  totals_.errors += !verdict.error.empty();
  if (verdict.found) ++(verdict.finding.suspicious ? totals_.suspicious : totals_.findings);
  if (!verdict.found && verdict.error.empty()) return;
  told_.wait(*lock, [this] { return found_.size() < kMostUntold; });
  found_.push_back(std::move(result));
  news_.notify_one();
}

}  // namespace qiv
