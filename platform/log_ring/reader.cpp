#include "reader.h"
#include "share.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace log_ring
{

static bool read_at(int fd, size_t offset, void *bytes, size_t length)
{
    return pread(fd, bytes, length, static_cast<off_t>(offset)) == static_cast<ssize_t>(length);
}

// Not by a write: who shares the descriptor may have it append.
bool clear(int fd)
{
    ring *log = map(fd);
    if (!log)
        return false;
    log->first.store(log->next.load(std::memory_order_relaxed), std::memory_order_relaxed);
    return munmap(log, sizeof *log) == 0;
}

// Copies the cells from at_ to `next`.
bool reader::look(uint64_t next)
{
    count_ = static_cast<size_t>(next - at_);
    copies_.resize(count_ * (1 + CELL_WORDS));
    const auto index = static_cast<size_t>(at_ % CELLS);
    const size_t unbroken = std::min(count_, CELLS - index);
    return read_at(fd_, offsetof(ring, cells) + index * sizeof(cell), copies_.data(),
                   unbroken * sizeof(cell)) &&
           read_at(fd_, offsetof(ring, cells), copies_.data() + unbroken * (1 + CELL_WORDS),
                   (count_ - unbroken) * sizeof(cell));
}

// Appends the line that begins in the i-th copy; returns how many cells it takes, 0 when it is not whole.
size_t reader::take_line(size_t i, std::string &lines) const
{
    if (copy_of(i)[0] != mark_of(at_ + i, LINE))
        return 0;
    const size_t length = copy_of(i)[1] & LENGTH_BITS, count = cells_for(length);
    if (length > LINE_MAX || count > count_ - i)
        return 0;
    char line[LINE_MAX + sizeof(uint64_t)];
    uint64_t sum = length;
    size_t at = 0;
    for (size_t k = 0; k < count; k++) {
        const uint64_t *copy = copy_of(i + k);
        if (k > 0 && copy[0] != mark_of(at_ + i + k, MORE))
            return 0;
        for (size_t word = k == 0 ? 2 : 1; word <= CELL_WORDS && at < length; word++, at += sizeof *copy) {
            sum = add_to_sum(sum, copy[word]);
            memcpy(line + at, &copy[word], sizeof *copy);
        }
    }
    if (copy_of(i)[1] != first_word(sum, length))
        return 0;
    lines.append(line, length) += '\n';
    return count;
}

bool reader::read(std::string &lines, bool to_the_end)
{
    uint64_t next, first;
    if (!read_at(fd_, offsetof(ring, next), &next, sizeof next) ||
        !read_at(fd_, offsetof(ring, first), &first, sizeof first))
        return false;
    if (!begun_ || next - at_ > CELLS) // the writers are a round ahead; or somebody has set the counter back
        at_ = next - CELLS;
    begun_ = true;
    if (next - first < next - at_)
        at_ = first;
    if (!look(next))
        return false;
    size_t i = 0;
    while (i < count_) {
        const size_t taken = take_line(i, lines);
        const uint64_t number = at_ + i, mark = copy_of(i)[0];
        const bool given_up = mark == mark_of(number, EMPTY) || mark == mark_of(number, MORE);
        const bool settled = to_the_end || next - number > next - settled_;
        if (taken == 0 && !given_up && !settled && age_of(mark, number) <= AGE_MAX)
            break;
        i += std::max<size_t>(taken, 1);
    }
    at_ += i;
    settled_ = next;
    return true;
}

} // namespace log_ring
