#pragma once

#include <condition_variable>
#include <exception>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace kelvo {

/// Work on one input after the other by several threads, with the results in the order of the
/// inputs.
///
/// Inputs are taken and worked on by whichever thread is free; the thread that calls Next() does
/// its part while it waits. At most a few results per thread are ready ahead, so the memory does
/// not depend on the number of inputs.
template <typename Input, typename Output>
class OrderedWork {
public:
  using Source = std::function<bool(Input&)>;
  using Worker = std::function<Output(Input&)>;

  /// @param next    gives the inputs, false at the end; called by one thread at a time
  /// @param workers one for each thread, the calling one included; at least one. Where the system
  ///                does not allow so many threads, the last ones have nothing to do.
  OrderedWork(Source next, std::vector<Worker> workers)
      : fNext(std::move(next)),
        fWorkers(std::move(workers)),
        fMaxAhead(kAheadPerThread * fWorkers.size()) {
    for (std::size_t i = 1; i < fWorkers.size(); i++) try {
        fThreads.emplace_back([this, i] { Work(fWorkers[i]); });
      } catch (const std::system_error&) {
        return; // as many threads as there may be do it, too
      }
  }

  /// Waits for what is being worked on.
  ~OrderedWork() {
    {
      const std::lock_guard lock(fMutex);
      fStop = true;
    }
    fChanged.notify_all();
    for (std::thread& thread : fThreads) thread.join();
  }
  OrderedWork(const OrderedWork&) = delete;
  OrderedWork& operator=(const OrderedWork&) = delete;

  /// Gives the next result.
  /// @return false at the end
  /// @throw whatever source or worker threw, after the results before it have been given; nothing
  ///        comes behind it
  bool Next(Output& output) {
    for (;;) {
      {
        std::unique_lock lock(fMutex);
        if (fAtEnd || fTaken - fGiven >= fMaxAhead)
          fChanged.wait(lock, [this] { return fReady.count(fGiven) || fGiven == fTaken; });
        if (auto ready = fReady.extract(fGiven)) {
          fGiven++;
          lock.unlock();
          fChanged.notify_all();
          if (ready.mapped().fError) std::rethrow_exception(ready.mapped().fError);
          output = std::move(ready.mapped().fOutput);
          return true;
        }
        if (fAtEnd && fGiven == fTaken) return false;
      }
      WorkOnce(fWorkers[0]);
    }
  }

private:
  static constexpr unsigned long long kAheadPerThread = 4;

  struct Result {
    Output fOutput{};
    std::exception_ptr fError;
  };

  void Work(Worker& worker) {
    for (;;) {
      {
        std::unique_lock lock(fMutex);
        fChanged.wait(lock, [this] { return fStop || fAtEnd || fTaken - fGiven < fMaxAhead; });
        if (fStop || fAtEnd) return;
      }
      WorkOnce(worker);
    }
  }

  void WorkOnce(Worker& worker) {
    Input input;
    const auto index = Take(input);
    if (!index) return;
    Result result;
    try {
      result.fOutput = worker(input);
    } catch (...) {
      result.fError = std::current_exception();
    }
    const std::lock_guard lock(fMutex);
    Put(*index, std::move(result));
  }

  /// Takes an input and returns its number; nothing at the end.
  std::optional<unsigned long long> Take(Input& input) {
    const std::lock_guard taking(fTaking);
    {
      const std::lock_guard lock(fMutex);
      if (fAtEnd) return std::nullopt;
    }
    Result failed;
    bool isThere = false;
    try {
      isThere = fNext(input);
    } catch (...) {
      failed.fError = std::current_exception();
    }
    const std::lock_guard lock(fMutex);
    if (isThere) return fTaken++;
    fAtEnd = true;
    if (failed.fError) Put(fTaken++, std::move(failed));
    fChanged.notify_all();
    return std::nullopt;
  }

  void Put(unsigned long long index, Result result) {
    if (result.fError) fAtEnd = true;
    fReady.emplace(index, std::move(result));
    fChanged.notify_all();
  }

  Source fNext;
  std::vector<Worker> fWorkers;
  unsigned long long fMaxAhead; // results that may be ready or in work

  std::mutex fTaking; // held while an input is taken; locked before fMutex
  std::mutex fMutex;  // guards what follows
  std::condition_variable fChanged;
  unsigned long long fTaken = 0; // inputs taken
  unsigned long long fGiven = 0; // results given to the caller
  bool fAtEnd = false;           // nothing more is taken
  bool fStop = false;
  std::map<unsigned long long, Result> fReady; // by the number of the input

  std::vector<std::thread> fThreads;
};

} // namespace kelvo
