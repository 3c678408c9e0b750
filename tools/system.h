// What the command asks of the system beyond the standard library.
#ifndef RASTREL_TOOLS_SYSTEM_H
#define RASTREL_TOOLS_SYSTEM_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace rastrel::tool {

// Equal for two names of one file.
using FileKey = std::pair<uint64_t, uint64_t>;
// Nothing where there is no such file.
std::optional<FileKey> KeyOf(const std::string& path);

// A path in the form in which the paths of different files differ.
std::string Comparable(const std::string& path);

// Takes the numbers of standard input, output and error where they are closed, so that no file that is opened
// gets one of them and receives what is meant for people.
void ReserveStandardFiles();

// Makes standard input and output carry bytes as they are.
void UseBytes();

// Whether standard error is a screen that knows escape sequences.
bool CanDrawOnScreen();

// Calls `handler` when the process is interrupted, and lets writes beyond the file size limit, and to pipes
// that nobody reads, fail instead of ending the process.
void OnInterruption(void (*handler)(int signal));

// Calls `work` when no other thread is in a call of this.
void Exclusively(const std::function<void()>& work);

// How many threads or processes are to work: as many as are wanted, or, for 0, as there are cores; 1 where
// the system's build of the command has no threads.
unsigned ThreadsFor(int wanted);

// Calls `work` with 0 to count - 1, on as many threads at once as ThreadsFor says. What a call returns is
// called in turn, in order, one at a time.
using Finish = std::function<void()>;
void RunInOrder(size_t count, int wantedThreads, const std::function<Finish(size_t)>& work);

}  // namespace rastrel::tool

#endif
