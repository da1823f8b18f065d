// The threads of a fit's residual passes: made once per analysis
// (threadsstart) and ended with it (threadsstop); in between, threadsrun
// hands each a share of a pass's blocks.
//
// A job is a count of items and a function of (worker, item).  The items
// are taken in increasing order from one atomic counter by the calling
// thread (worker 0) and the pool's threads alike, and threadsrun returns
// when every item is done.  Whatever the number of threads, each item is
// computed by the same code on its own data, so the results do not depend
// on it.
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "exec/exec.h"

namespace vexor {

int32_t runthreads = 0;
int32_t threadsused = 1;

namespace {

struct Pool {
  std::vector<std::thread> threads;
  std::mutex lock;
  std::condition_variable wake, done;
  const std::function<void(int, int32_t)>* job = nullptr;
  int32_t items = 0;
  std::atomic<int32_t> next{0};
  int busy = 0;            // threads still working on the current job
  unsigned generation = 0;  // the job number, so a thread takes each job once
  bool quit = false;
};

Pool* pool = nullptr;

// Items from the counter until none is left.
void work(Pool* p, int worker, const std::function<void(int, int32_t)>& job, int32_t items) {
  for (int32_t i; (i = p->next.fetch_add(1)) < items;) job(worker, i);
}

void threadmain(Pool* p, int worker) {
  unsigned seen = 0;
  for (;;) {
    const std::function<void(int, int32_t)>* job;
    int32_t items;
    {
      std::unique_lock<std::mutex> hold(p->lock);
      p->wake.wait(hold, [&] { return p->quit || p->generation != seen; });
      if (p->quit) return;
      seen = p->generation;
      job = p->job;
      items = p->items;
    }
    work(p, worker, *job, items);
    std::lock_guard<std::mutex> hold(p->lock);
    if (--p->busy == 0) p->done.notify_one();
  }
}

}  // namespace

int32_t threadcount() {
  if (runthreads > 0) return runthreads < MAXTHREADS ? runthreads : MAXTHREADS;
  const unsigned cores = std::thread::hardware_concurrency();
  return cores == 0 ? 1 : (cores < static_cast<unsigned>(MAXTHREADS) ? static_cast<int32_t>(cores) : MAXTHREADS);
}

int32_t threadsstart() {
  threadsstop();
  const int32_t n = threadcount();
  threadsused = 1;
  if (n <= 1) return 1;
  pool = new Pool;
  try {
    for (int w = 1; w < n; ++w) pool->threads.emplace_back(threadmain, pool, w);
  } catch (...) {
    // No more threads to be had: the ones made do the work.
  }
  threadsused = static_cast<int32_t>(pool->threads.size()) + 1;
  return threadsused;
}

void threadsstop() {
  if (!pool) return;
  {
    std::lock_guard<std::mutex> hold(pool->lock);
    pool->quit = true;
  }
  pool->wake.notify_all();
  for (std::thread& t : pool->threads) t.join();
  delete pool;
  pool = nullptr;
  batchrelease();
}

int32_t threadsactive() { return pool ? static_cast<int32_t>(pool->threads.size()) + 1 : 1; }

void threadsrun(int32_t items, const std::function<void(int, int32_t)>& job) {
  if (!pool || items <= 1) {
    for (int32_t i = 0; i < items; ++i) job(0, i);
    return;
  }
  {
    std::lock_guard<std::mutex> hold(pool->lock);
    pool->job = &job;
    pool->items = items;
    pool->next = 0;
    pool->busy = static_cast<int>(pool->threads.size());
    ++pool->generation;
  }
  pool->wake.notify_all();
  work(pool, 0, job, items);
  std::unique_lock<std::mutex> hold(pool->lock);
  pool->done.wait(hold, [&] { return pool->busy == 0; });
}

}  // namespace vexor
