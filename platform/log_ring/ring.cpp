#include "ring.h"

#include <algorithm>
#include <cstring>

namespace log_ring
{

// For so many rounds a cell is left to a writer that has not finished it: who is held up in the midst of a
// line that long has most likely died.
static constexpr uint64_t PATIENCE = 64 * CELLS;

// A writer that meets such a cell, or has been overtaken by a whole round, draws anew. After so many times it
// takes what it draws next: then the marks are not of writers like itself.
static constexpr int TRIES = 64; // more than a line has cells: it goes past one that was left unfinished

static cell &cell_of(ring &log, uint64_t number) { return log.cells[number % CELLS]; }

static bool is_free(uint64_t mark, uint64_t number)
{
    const uint64_t age = age_of(mark, number);
    return age <= AGE_MAX && ((mark & STATES) != WRITING || age > PATIENCE);
}

static bool take_one(ring &log, uint64_t number)
{
    std::atomic<uint64_t> &mark = cell_of(log, number).mark;
    uint64_t found = mark.load(std::memory_order_relaxed);
    while (is_free(found, number)) // whoever has it may finish it just now
        if (mark.compare_exchange_weak(found, mark_of(number, WRITING), std::memory_order_relaxed))
            return true;
    return false;
}

// Takes `count` cells, or none.
static bool take(ring &log, uint64_t number, size_t count)
{
    for (size_t i = 0; i < count; i++) {
        if (take_one(log, number + i))
            continue;
        while (i-- > 0)
            cell_of(log, number + i).mark.store(mark_of(number + i, EMPTY), std::memory_order_relaxed);
        return false;
    }
    return true;
}

static uint64_t draw_cells(ring &log, size_t count)
{
    for (int tries = 0; tries < TRIES; tries++) {
        const uint64_t number = log.next.fetch_add(count, std::memory_order_relaxed);
        if (take(log, number, count))
            return number;
    }
    const uint64_t number = log.next.fetch_add(count, std::memory_order_relaxed);
    for (size_t i = 0; i < count; i++)
        cell_of(log, number + i).mark.store(mark_of(number + i, WRITING), std::memory_order_relaxed);
    return number;
}

static uint64_t word_at(const char *line, size_t length, size_t at)
{
    uint64_t word = 0;
    if (length - at >= sizeof word)
        memcpy(&word, line + at, sizeof word);
    else
        memcpy(&word, line + at, length - at);
    return word;
}

// Each store is a release, so that nobody sees it before the mark that says who is writing. Where the
// processor keeps stores in order, that costs nothing.
void write(ring &log, const char *line, size_t length)
{
    length = std::min(length, LINE_MAX);
    const size_t count = cells_for(length);
    const uint64_t number = draw_cells(log, count);
    uint64_t sum = length;
    size_t at = 0;
    for (size_t i = 0; i < count; i++) {
        cell &here = cell_of(log, number + i);
        for (size_t k = i == 0 ? 1 : 0; k < CELL_WORDS && at < length; k++, at += sizeof(uint64_t)) {
            const uint64_t word = word_at(line, length, at);
            sum = add_to_sum(sum, word);
            here.words[k].store(word, std::memory_order_release);
        }
        if (i > 0)
            here.mark.store(mark_of(number + i, MORE), std::memory_order_release);
    }
    cell &begin = cell_of(log, number);
    begin.words[0].store(first_word(sum, length), std::memory_order_release);
    begin.mark.store(mark_of(number, LINE), std::memory_order_release);
}

} // namespace log_ring
