// libdiag.so: the way to the phone's diagnostic packet router.
#pragma once

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Serves one request. `request` is the packet from its command code byte on; it lies in a buffer of at least
// 65,535 + 1,024 bytes that is zero behind the packet. `length` is the packet's size in bytes.
// Returns a buffer from diagpkt_subsys_alloc, which the router sends and frees, or NULL for no reply.
typedef void *(*diagpkt_handler)(void *request, uint16_t length);

// A subsystem command code is served by this entry when low <= code <= high.
struct diagpkt_entry {
    uint16_t low;
    uint16_t high;
    diagpkt_handler handler;
};

// What a service registers. The router keeps the pointer to the entries: they must outlive the connection.
struct diagpkt_table {
    uint16_t delay;     // 0: the handler's return value is the response
    uint16_t command;   // 0xFF: subsystem packets
    uint16_t subsystem; // 0..255
    uint16_t count;     // number of entries
    uint16_t processor; // 0: the application processor
    const struct diagpkt_entry *entries;
};

// Connects to the router; `unused` may be NULL. False: the router cannot be reached.
bool Diag_LSM_Init(uint8_t *unused);

// Disconnects, after a running handler has returned. False: there was no connection, or the handler has not
// returned within a few seconds; it may then still run, and nothing that it touches may go away.
bool Diag_LSM_DeInit(void);

// Registers one table. Handlers are called one at a time, on the router's own thread.
void diagpkt_tbl_reg(const struct diagpkt_table *table);

// A response buffer of `length` bytes, not zeroed, or NULL when there is none.
void *diagpkt_subsys_alloc(unsigned int subsystem, unsigned int code, unsigned int length);

#ifdef __cplusplus
}
#endif
