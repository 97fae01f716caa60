// SPDX-License-Identifier: MIT
#include "mosaic/base/parallel.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <utility>

namespace panoval::mosaic
{

namespace
{

class Pieces
{
public:
    Pieces(std::size_t count, const PieceOfWork& work) : count_(count), work_(work) {}

    // False when there is none left.
    bool take_one()
    {
        const std::size_t i = next_++;
        if (i >= count_ || has_failed_)
            return false;
        try {
            work_(i);
        } catch (...) {
            keep_failure(i);
        }
        return true;
    }

    bool has_more() const { return next_ < count_ && !has_failed_; }
    void drop_others() { next_ = count_; }

    void rethrow() const
    {
        if (failure_ != nullptr)
            std::rethrow_exception(failure_);
    }

private:
    void keep_failure(std::size_t i)
    {
        const std::lock_guard lock(mutex_);
        if (failure_ == nullptr || i < failed_) {
            failure_ = std::current_exception();
            failed_ = i;
        }
        has_failed_ = true;
    }

    const std::size_t count_;
    const PieceOfWork& work_;
    std::atomic<std::size_t> next_{0};
    std::atomic<bool> has_failed_{false};
    std::mutex mutex_;
    std::exception_ptr failure_;
    std::size_t failed_ = 0;
};

// Of this thread.
thread_local Crew* own_crew = nullptr;
thread_local bool works_beside = false;

} // namespace

// All but the pieces is guarded by the crew's mutex.
struct Crew::Job {
    Pieces pieces;
    std::size_t places; // for helpers
    bool is_beside;
    std::size_t helpers = 0; // at work

    Job(std::size_t count, const PieceOfWork& work, std::size_t most_helpers, bool beside)
        : pieces(count, work), places(most_helpers), is_beside(beside)
    {
    }
};

struct Crew::Beside {
    PieceOfWork work;
    Job job;

    Beside(std::size_t count, PieceOfWork given, std::size_t most_helpers)
        : work(std::move(given)), job(count, work, most_helpers, true)
    {
    }
};

Crew::Crew(std::size_t threads)
    : most_helpers_(std::max<std::size_t>(threads, 1) - 1), outer_(std::exchange(own_crew, this))
{
}

Crew::~Crew()
{
    {
        const std::lock_guard lock(mutex_);
        if (beside_ != nullptr)
            beside_->job.pieces.drop_others();
        has_ended_ = true;
    }
    changed_.notify_all();
    for (std::thread& helper : helpers_)
        helper.join();
    own_crew = outer_;
}

void Crew::run(std::size_t count, std::size_t threads, const PieceOfWork& work)
{
    const std::size_t wanted = std::min(std::max<std::size_t>(threads, 1), count);
    Job job(count, work, std::min(wanted > 0 ? wanted - 1 : 0, most_helpers_), works_beside);
    if (job.places == 0) {
        take_turns(job);
        return job.pieces.rethrow();
    }
    {
        const std::lock_guard lock(mutex_);
        hire(job.places);
        jobs_.insert(job.is_beside ? jobs_.end() : jobs_.begin(), &job);
    }
    changed_.notify_all();
    take_turns(job);
    std::unique_lock lock(mutex_);
    remove(job, lock);
    job.pieces.rethrow();
}

void Crew::begin_beside(std::size_t count, PieceOfWork work)
{
    const std::lock_guard lock(mutex_);
    beside_ = std::make_unique<Beside>(count, std::move(work), most_helpers_ + 1); // one of them finishes it
    hire(std::min(count, most_helpers_));
    jobs_.push_back(&beside_->job);
    changed_.notify_all();
}

void Crew::finish_beside()
{
    std::unique_lock lock(mutex_);
    Job& job = beside_->job;
    // Its pieces may have further work shared out.
    while (job.pieces.has_more() || job.helpers > 0) {
        if (Job* const next = next_job())
            help(*next, lock);
        else
            changed_.wait(lock);
    }
    remove(job, lock);
    lock.unlock();
    const std::unique_ptr<Beside> done = std::move(beside_);
    done->job.pieces.rethrow();
}

// So many helpers in all, unless the crew ends already and waits for those that there are; the mutex is held.
void Crew::hire(std::size_t helpers)
{
    try {
        while (!has_ended_ && helpers_.size() < helpers)
            helpers_.emplace_back([this] { serve(); });
    } catch (const std::exception&) {
        // The system gives no more threads, or there is no memory for one: those that there are do all of it.
    }
}

void Crew::serve()
{
    own_crew = this;
    std::unique_lock lock(mutex_);
    while (!has_ended_) {
        if (Job* const job = next_job())
            help(*job, lock);
        else
            changed_.wait(lock);
    }
}

Crew::Job* Crew::next_job() const
{
    for (Job* const job : jobs_)
        if (job->helpers < job->places && job->pieces.has_more())
            return job;
    return nullptr;
}

void Crew::help(Job& job, std::unique_lock<std::mutex>& lock)
{
    ++job.helpers;
    lock.unlock();
    const bool worked_beside = std::exchange(works_beside, job.is_beside);
    take_turns(job);
    works_beside = worked_beside;
    lock.lock();
    --job.helpers;
    changed_.notify_all();
}

void Crew::take_turns(Job& job)
{
    do {
        if (job.is_beside)
            give_way();
    } while (job.pieces.take_one());
}

// What is done beside waits while there are pieces of what somebody waits for.
void Crew::give_way()
{
    std::unique_lock lock(mutex_);
    for (Job* next = next_job(); next != nullptr && !next->is_beside; next = next_job())
        help(*next, lock);
}

// Once its helpers have left it.
void Crew::remove(Job& job, std::unique_lock<std::mutex>& lock)
{
    std::erase(jobs_, &job);
    changed_.wait(lock, [&job] { return job.helpers == 0; });
}

void run_in_parallel(std::size_t count, std::size_t threads, const PieceOfWork& work)
{
    if (own_crew != nullptr)
        return own_crew->run(count, threads, work);
    Crew crew(std::min(std::max<std::size_t>(threads, 1), std::max<std::size_t>(count, 1)));
    crew.run(count, threads, work);
}

void run_backwards(std::size_t count, std::size_t threads, const PieceOfWork& work)
{
    run_in_parallel(count, threads, [&](std::size_t i) { work(count - 1 - i); });
}

} // namespace panoval::mosaic
