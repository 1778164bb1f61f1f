// From a packet to its handler and from the handler to its response: tables, and the buffers in between.
#pragma once

#include "diag.h"
#include "frame.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace router
{

// False: the table cannot be kept. Any thread may call this, and the three below.
[[nodiscard]] bool add_table(const diagpkt_table &table);
void forget_tables();
[[nodiscard]] bool has_table();

// Null: nobody serves the code.
[[nodiscard]] diagpkt_handler find_handler(unsigned subsystem, unsigned code);

// The bytes behind a response's head are what the handler fills: it returns no length, so that is kept in
// front of them. Keeps the alignment of malloc.
struct alignas(std::max_align_t) response {
    size_t length;

    [[nodiscard]] const uint8_t *bytes() const { return reinterpret_cast<const uint8_t *>(this + 1); }
};

struct free_response {
    void operator()(response *r) const { free(r); }
};
using owned_response = std::unique_ptr<response, free_response>;

// The bytes of a new response, or null when there is no memory or the length is more than a packet's.
[[nodiscard]] void *allocate_response(size_t length);

// Lets handlers serve packets, each from a buffer that is zero behind it. There a handler may read, by as
// much as its own text and number routines do. Few write there, though any may, and packets are short: so
// theirs is a buffer that is cheap to clear. Behind its first page one and the same page stands again and
// again, and what a handler writes to it is there at each of its places until the buffer is cleared.
class request_buffer
{
  public:
    request_buffer();
    ~request_buffer();
    request_buffer(const request_buffer &) = delete;
    request_buffer &operator=(const request_buffer &) = delete;

    // Null: the handler stays silent.
    [[nodiscard]] owned_response serve(diagpkt_handler handler, const uint8_t *packet, size_t length);

    // Must come before the next serve().
    void clear();

  private:
    static constexpr size_t ROOM = port::PACKET_MAX + 1024;

    [[nodiscard]] bool map_short(uint8_t *place, size_t size) const;

    const size_t page_; // as the kernel has them; a packet that is not longer is short
    const size_t short_size_;
    uint8_t *short_; // null: there was no memory for it
    bool long_used_ = false;
    alignas(16) uint8_t long_[ROOM] = {};
};

// What is answered to a packet that nobody serves; returns its length.
static constexpr size_t REFUSAL_MAX = 1 + port::ERROR_ECHO_MAX;
size_t refuse(const uint8_t *packet, size_t length, uint8_t (&refusal)[REFUSAL_MAX]);

} // namespace router
