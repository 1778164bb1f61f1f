// The ring that a phone's log is: a file in memory, of fixed size, that every process of the phone maps and
// writes lines to without a system call, and that the workstation reads.
//
// It is bounded by construction: the file is sealed, so that nobody makes it larger or smaller, and a line
// takes the place of the oldest. A line lies in one cell, or in several in a row. Each time a cell is taken
// it gets a number that never comes again, drawn by adding to one counter, and a mark that tells the number
// and how far the line has come. So writers wait for nobody; one that dies in the midst of a line leaves a
// gap of that line; a reader tells a line from what was there before and from half of one, and by its sum
// from one that was written over meanwhile.
//
// Whoever has the ring may write anything to it. Writers and readers stay within its bounds whatever it says,
// and come to an end.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace log_ring
{

static constexpr size_t CELLS = 32768;
static constexpr size_t CELL_WORDS = 15;
static constexpr size_t LINE_MAX = 4352; // bytes of a line

struct cell {
    std::atomic<uint64_t> mark; // see mark_of
    std::atomic<uint64_t> words[CELL_WORDS];
};

struct ring {
    alignas(128) std::atomic<uint64_t> next;  // the number that is drawn next
    alignas(128) std::atomic<uint64_t> first; // what lies before it has been cleared
    alignas(128) cell cells[CELLS];           // number N is in cell N % CELLS
};
static_assert(std::atomic<uint64_t>::is_always_lock_free && sizeof(cell) == 128);

// Writes a line of `length` bytes, without its line feed; what is beyond LINE_MAX is cut off.
void write(ring &log, const char *line, size_t length);

// ---- What a writer and a reader must agree on

// The state of a cell.
static constexpr uint64_t EMPTY = 0;   // or given up
static constexpr uint64_t WRITING = 1; // somebody's, who has not finished
static constexpr uint64_t LINE = 2;    // a line begins here, and is whole
static constexpr uint64_t MORE = 3;    // the rest of one
static constexpr uint64_t STATES = 3;

constexpr uint64_t mark_of(uint64_t number, uint64_t state) { return number << 2 | state; }

// How many numbers ago the cell got its mark, seen from `number`. Much, where that is still to come.
constexpr uint64_t age_of(uint64_t mark, uint64_t number) { return ((number << 2) - (mark & ~STATES)) >> 2; }
static constexpr uint64_t AGE_MAX = UINT64_MAX >> 3;

// The first word of a line is its own: length and sum.
static constexpr size_t FIRST_BYTES = (CELL_WORDS - 1) * sizeof(uint64_t);
static constexpr size_t MORE_BYTES = CELL_WORDS * sizeof(uint64_t);
static constexpr uint64_t LENGTH_BITS = 0xFFFF;

constexpr size_t cells_for(size_t length)
{
    return length <= FIRST_BYTES ? 1 : 1 + (length - FIRST_BYTES + MORE_BYTES - 1) / MORE_BYTES;
}

// Begins with the length, and takes each word of the line; zeros are behind the line's end.
constexpr uint64_t add_to_sum(uint64_t sum, uint64_t word)
{
    sum = (sum ^ word) * 0x9E3779B97F4A7C15;
    return sum ^ sum >> 29;
}
constexpr uint64_t first_word(uint64_t sum, size_t length) { return (sum & ~LENGTH_BITS) | length; }

} // namespace log_ring
