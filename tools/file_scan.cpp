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
  bool over = false;
  while (!over) {
    FileScanTotals totals;
    {
      std::unique_lock<std::mutex> lock(lock_);
      over = over_.wait_for(lock, kTick, [this] { return workers_ == 0; });
      totals = totals_;
    }
    if (over) {
      for (std::thread& thread : threads) thread.join();
    }
    // When stopped, files that were finished are told although one before them was not.
    for (Job& job : TakeDone(!over)) {
      if (job.verdict) on_result({std::move(job.path), std::move(*job.verdict)});
    }
    if (!over && !stop_ && !on_tick(totals)) {
      stop_ = true;
      const std::lock_guard<std::mutex> lock(lock_);
      room_.notify_all();
      work_.notify_all();
    }
  }
  totals_.stopped = stop_;
  return totals_;
}

void CFileScan::Walk(CTreeWalk* walk) {
  CTreeWalk::Step step;
  while (!stop_ && walk->Next(&step)) {
    std::unique_lock<std::mutex> lock(lock_);
    room_.wait(lock, [this] { return stop_ || queue_.size() < kMostAhead; });
    if (stop_) return;
    queue_.push_back({std::move(step.path), nullptr, false});
    ++totals_.met;
    if (!step.error.empty()) {
      queue_.back().verdict = std::make_unique<FileVerdict>();
      queue_.back().verdict->error = std::move(step.error);
    }
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
    work_.wait(lock, [this] { return stop_ || walked_ || waiting_ < queue_.size(); });
    if (stop_ || waiting_ == queue_.size()) break;
    Job& job = queue_[waiting_++];
    FileVerdict verdict;
    if (job.verdict) {
      verdict = std::move(*job.verdict);
    } else {
      lock.unlock();
      verdict = JudgeWithoutThrowing(judge_, job.path, &cores_, stop_);
      lock.lock();
    }
    Finish(&job, std::move(verdict));
  }
  if (--workers_ == 0) over_.notify_one();
}

void CFileScan::Finish(Job* job, FileVerdict verdict) {
  ++totals_.done;
  totals_.bytes += verdict.bytes;
  totals_.judged += verdict.judged;
  totals_.errors += !verdict.error.empty();
  if (verdict.found) ++(verdict.finding.suspicious ? totals_.suspicious : totals_.findings);
  if (verdict.found || !verdict.error.empty()) {
    job->verdict = std::make_unique<FileVerdict>(std::move(verdict));
  } else {
    job->path = {};
  }
  job->done = true;
}

std::deque<CFileScan::Job> CFileScan::TakeDone(bool in_order) {
  std::deque<Job> done;
  const std::lock_guard<std::mutex> lock(lock_);
  while (!queue_.empty() && (queue_.front().done || !in_order)) {
    if (queue_.front().done && queue_.front().verdict) done.push_back(std::move(queue_.front()));
    queue_.pop_front();
    if (waiting_ > 0) --waiting_;
  }
  room_.notify_all();
  return done;
}

}  // namespace qiv
