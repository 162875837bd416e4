// The file system calls of the library under test: written down, made to fail, or taken as the moment of a power cut.
//
// This program defines open, write, fsync, link, rename, unlink and mkdir itself, and the library reaches them through their
// dynamic symbols. Only calls on files inside the watched folder are looked at. A call is named as the journal has it:
// "fsync config.json.tmp", "rename config.json.tmp -> config.json"; the watched folder itself is "fsync .".
#pragma once

#include <string>
#include <vector>

namespace file_calls {

// Looks at the calls inside this folder from now on; forgets journal and faults. "" looks at none.
void watch(const std::string &folder);
std::vector<std::string> journal();
size_t count(const std::string &call);
// Waits until the journal has the call `times` times (failed ones included). False after half a minute.
bool wait_for(const std::string &call, size_t times = 1);

// Is told of each call before it is made, in the calling thread; null for nobody.
void tell(void (*observer)(const std::string &call));

// The next `times` calls of that name fail with this errno and do nothing.
void fail(const std::string &call, int error, int times = 1 << 30);
void stop_failing();
// How many calls were made to fail.
int failures();
// Every write takes at most so many bytes.
void limit_writes(size_t size);
// The process ends at the call number `nth` from now on (1 is the next), which is not made; a write is made by half.
void end_at(int nth);

}  // namespace file_calls
