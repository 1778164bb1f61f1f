#include "dispatch.h"
#include "descriptor.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace router
{

static constexpr size_t TABLES_MAX = 32;
static constexpr uint8_t UNSET = 0xA5; // what a new response holds

// Neither has a destructor that would run under a thread which a hanging handler has left behind.
static std::mutex tables_lock;
static diagpkt_table tables[TABLES_MAX];
static size_t table_count;

bool add_table(const diagpkt_table &table)
{
    const std::lock_guard<std::mutex> guard(tables_lock);
    if (table_count == TABLES_MAX)
        return false;
    tables[table_count++] = table;
    return true;
}

void forget_tables()
{
    const std::lock_guard<std::mutex> guard(tables_lock);
    table_count = 0;
}

bool has_table()
{
    const std::lock_guard<std::mutex> guard(tables_lock);
    return table_count > 0;
}

diagpkt_handler find_handler(unsigned subsystem, unsigned code)
{
    const std::lock_guard<std::mutex> guard(tables_lock);
    for (const diagpkt_table *table = tables; table != tables + table_count; table++) {
        if (table->subsystem != subsystem)
            continue;
        const diagpkt_entry *end = table->entries + table->count;
        const diagpkt_entry *found = std::find_if(table->entries, end, [code](const diagpkt_entry &entry) {
            return entry.low <= code && code <= entry.high;
        });
        if (found != end)
            return found->handler;
    }
    return nullptr;
}

void *allocate_response(size_t length)
{
    if (length > port::PACKET_MAX)
        return nullptr;
    auto *head = static_cast<response *>(malloc(sizeof(response) + length));
    if (!head)
        return nullptr;
    head->length = length;
    // Not zeroed on the phone, and here never zero by chance: who forgets to fill it shall see it.
    memset(head + 1, UNSET, length);
    return head + 1;
}

// One page for the packet, and behind it as many as it takes.
request_buffer::request_buffer()
    : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))), short_size_((ROOM / page_ + 2) * page_)
{
    void *place = mmap(nullptr, short_size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    short_ = place == MAP_FAILED ? nullptr : static_cast<uint8_t *>(place);
    if (short_ && !map_short(short_ + page_, short_size_ - page_)) {
        munmap(short_, short_size_);
        short_ = nullptr;
    }
}

// Has all pages there be the same one.
bool request_buffer::map_short(uint8_t *place, size_t size) const
{
    const owned::descriptor page(memfd_create("request", MFD_CLOEXEC));
    bool good = ftruncate(page.get(), static_cast<off_t>(page_)) == 0;
    for (size_t at = 0; good && at < size; at += page_)
        good = mmap(place + at, page_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, page.get(), 0) !=
               MAP_FAILED;
    return good;
}

request_buffer::~request_buffer()
{
    if (short_)
        munmap(short_, short_size_);
}

owned_response request_buffer::serve(diagpkt_handler handler, const uint8_t *packet, size_t length)
{
    long_used_ = !short_ || length > page_;
    uint8_t *buffer = long_used_ ? long_ : short_;
    memcpy(buffer, packet, length);
    void *bytes = handler(buffer, static_cast<uint16_t>(length));
    return owned_response(bytes ? static_cast<response *>(bytes) - 1 : nullptr);
}

void request_buffer::clear()
{
    if (long_used_)
        memset(long_, 0, sizeof long_);
    else
        memset(short_, 0, 2 * page_);
}

size_t refuse(const uint8_t *packet, size_t length, uint8_t (&refusal)[REFUSAL_MAX])
{
    const size_t echoed = std::min(length, port::ERROR_ECHO_MAX);
    refusal[0] = port::ERROR_PACKET;
    memcpy(refusal + 1, packet, echoed);
    return 1 + echoed;
}

} // namespace router
