// Reads a log's ring by its descriptor, with reads of the file alone: what its writers do to it meanwhile can
// make lines be missed, and nothing else.
#pragma once

#include "ring.h"

#include <string>
#include <vector>

namespace log_ring
{

class reader
{
  public:
    explicit reader(int fd) : fd_(fd) {} // stays the caller's

    // Appends the lines that have come since the last call, the oldest first, each with a line feed; what is
    // in them is their writers'. A line that somebody is in the midst of is left for the next call, with all
    // behind it; the next call passes over it if it is unfinished then, as `to_the_end` does at once. False:
    // the ring cannot be read.
    [[nodiscard]] bool read(std::string &lines, bool to_the_end);

  private:
    [[nodiscard]] bool look(uint64_t next);
    [[nodiscard]] size_t take_line(size_t i, std::string &lines) const;
    [[nodiscard]] const uint64_t *copy_of(size_t i) const { return &copies_[i * (1 + CELL_WORDS)]; }

    int fd_;
    bool begun_ = false;
    uint64_t at_ = 0;              // the number to go on with
    uint64_t settled_ = 0;         // what lies before it was drawn before the last call
    std::vector<uint64_t> copies_; // of the cells from there on: mark and words
    size_t count_ = 0;
};

// Has readers pass over all that has been written so far. False: the ring cannot be written.
[[nodiscard]] bool clear(int fd);

} // namespace log_ring
