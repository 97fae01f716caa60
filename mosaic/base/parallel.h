// SPDX-License-Identifier: MIT
// Independent pieces of work on several threads. What a piece does never depends on which thread does it or when, so
// that results are the same for any number of threads.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace panoval::mosaic
{

using PieceOfWork = std::function<void(std::size_t)>;

// Calls work(0) to work(count - 1), each once, on up to `threads` threads, the caller's among them; pieces begin in
// ascending order. Returns when all that have begun have ended; after a piece has thrown no further one begins, and the
// exception of the first piece, in their order, that threw is thrown on. The threads are those of the caller's crew, if
// it belongs to one.
void run_in_parallel(std::size_t count, std::size_t threads, const PieceOfWork& work);

// The same from work(count - 1) to work(0). Work that goes through the pictures in the other direction than the work
// before finds those still in memory that were read last.
void run_backwards(std::size_t count, std::size_t threads, const PieceOfWork& work);

// Threads that stay for one piece of work after the other. Whoever makes a crew belongs to it until it ends, and its
// threads do; a thread belongs to the crew that it joined last.
class Crew
{
public:
    explicit Crew(std::size_t threads); // the caller's among them; they begin when there is work for them
    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;
    ~Crew(); // pieces that have not begun never will

    // As run_in_parallel.
    void run(std::size_t count, std::size_t threads, const PieceOfWork& work);

    // Pieces for threads that have nothing else to do, before each of which, and before each that these share out in
    // turn, such a thread does what others wait for. One such work at a time, begun by the crew's maker.
    void begin_beside(std::size_t count, PieceOfWork work);

    // The caller joins in until all of them are done. Throws what the first piece threw.
    void finish_beside();

private:
    struct Job;
    struct Beside;

    void hire(std::size_t helpers);
    void serve();
    Job* next_job() const;
    void take_turns(Job& job);
    void give_way();
    void help(Job& job, std::unique_lock<std::mutex>& lock);
    void remove(Job& job, std::unique_lock<std::mutex>& lock);

    const std::size_t most_helpers_;
    Crew* const outer_; // what the maker belonged to
    std::mutex mutex_;
    std::condition_variable changed_; // there is work, or a helper has left one
    std::vector<Job*> jobs_;          // the most urgent first
    bool has_ended_ = false;
    std::vector<std::thread> helpers_;
    std::unique_ptr<Beside> beside_;
};

} // namespace panoval::mosaic
