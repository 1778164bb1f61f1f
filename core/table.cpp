#include "core/table.h"

#include <string.h>

#include <iterator>
#include <utility>

#include "core/command.h"
#include "hwdec/detect.h"

namespace
{
// What every command begins with: its entry is logged and its response drawn.
struct beginning {
    const char *entry;
    size_t size;                      // of the response, in bytes
    const char *no_response;          // logged when the router has no buffer: the station gets no reply
    const uint8_t *silence = nullptr; // while that is not 0, neither line is
};

struct command {
    uint16_t low;
    uint16_t high;
    uint16_t drawn_under; // the code of the response
    const beginning &begins;
    const char *name; // that its lines are logged under
    command_handler *handle;
};
} // namespace

static constexpr uint16_t AS_ASKED = 0; // drawn under the code of the request

static constexpr char ENTER[] = "Enter\n";
static constexpr char NO_RESPONSE[] = "diagpkt_subsys_alloc failed\n";
static constexpr char DIAG_NO_RESPONSE[] = "Diag: diagpkt_subsys_alloc failed!\n";

static constexpr beginning TEXT = {ENTER, TEXT_RESPONSE, NO_RESPONSE};
static constexpr beginning DIAG_TEXT = {ENTER, TEXT_RESPONSE, DIAG_NO_RESPONSE};
static constexpr beginning DOTTED_TEXT = {ENTER, TEXT_RESPONSE, "diagpkt_subsys_alloc failed.\n"};
static constexpr beginning LOUD_TEXT = {"Enter!\n", TEXT_RESPONSE, NO_RESPONSE};
static constexpr beginning LONG = {ENTER, LONG_RESPONSE, NO_RESPONSE};
static constexpr beginning DIAG_LONG = {ENTER, LONG_RESPONSE, DIAG_NO_RESPONSE};
static constexpr beginning ECHO = {ENTER, ECHO_RESPONSE, DIAG_NO_RESPONSE};
static constexpr beginning DETECTION = {"Enter!\n", TEXT_RESPONSE, DIAG_NO_RESPONSE, &hw_dec_log_suppressed};

#define COMMANDS(low, high, begins, handler)     command_handler handler;
#define COMMAND(code, begins, handler)           COMMANDS(code, code, begins, handler)
#define COMMAND_UNDER(code, drawn, begins, name) COMMANDS(code, code, begins, name)
#include "core/commands.def"
#undef COMMANDS
#undef COMMAND_UNDER

static constexpr command ROWS[] = {
#define COMMANDS(low, high, begins, handler)        {low, high, AS_ASKED, begins, #handler, handler},
#define COMMAND_UNDER(code, drawn, begins, handler) {code, code, drawn, begins, #handler, handler},
#include "core/commands.def"
};

static uint8_t *draw_response(const void *request, uint16_t code, size_t size)
{
    auto *response =
        static_cast<uint8_t *>(diagpkt_subsys_alloc(DIAG_SUBSYSTEM, code, static_cast<unsigned int>(size)));
    if (response) {
        memset(response, 0, size);
        memcpy(response, request, ECHO_RESPONSE);
    }
    return response;
}

static void *serve(const command &row, const void *request)
{
    const beginning &begins = row.begins;
    const bool logs = !begins.silence || *begins.silence == 0;
    if (logs)
        diag_log(row.name, "%s", begins.entry);
    const uint16_t code = row.drawn_under == AS_ASKED ? packet_code(request) : row.drawn_under;
    uint8_t *response = draw_response(request, code, begins.size);
    if (!response) {
        if (logs)
            diag_log(row.name, "%s", begins.no_response);
        return nullptr;
    }
    return row.handle(request, response);
}

// What the router calls: one function a row. The length of the request is told inside the packet, too.
template <size_t ROW> static void *serve_row(void *request, uint16_t) { return serve(ROWS[ROW], request); }

namespace
{
struct entry_list {
    diagpkt_entry entries[std::size(ROWS)];
};
} // namespace

template <size_t... ROW> static constexpr entry_list list_entries(std::index_sequence<ROW...>)
{
    return {{{ROWS[ROW].low, ROWS[ROW].high, serve_row<ROW>}...}};
}

static constexpr entry_list LIST = list_entries(std::make_index_sequence<std::size(ROWS)>());

const diagpkt_table diag_command_table = {
    0, // answered at once
    0xFF, DIAG_SUBSYSTEM, std::size(LIST.entries), 0, LIST.entries,
};
