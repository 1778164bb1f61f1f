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

// Lets the handler serve the packet. Null: it stays silent. The request is the handler's buffer; see clear().
class request_buffer
{
  public:
    [[nodiscard]] owned_response serve(diagpkt_handler handler, const uint8_t *packet, size_t length);

    // Must come before the next serve(): a request is zero behind its packet.
    void clear();

  private:
    // A handler may read behind the packet, by as much as its own text and number routines do.
    static constexpr size_t ROOM = port::PACKET_MAX + 1024;

    alignas(16) uint8_t bytes_[ROOM] = {};
};

// What is answered to a packet that nobody serves; returns its length.
static constexpr size_t REFUSAL_MAX = 1 + port::ERROR_ECHO_MAX;
size_t refuse(const uint8_t *packet, size_t length, uint8_t (&refusal)[REFUSAL_MAX]);

} // namespace router
