#include "station/program/page.h"

#include "station/catalogue/answer.h"
#include "station/client/errors.h"
#include "station/program/interrupts.h"
#include "station/program/line.h"
#include "station/records/source.h"

#include <cstdio>
#include <poll.h>

namespace station
{

static constexpr char USUAL_ADDRESS[] = "127.0.0.1:8080";

void PageOptions::add(CommandLine &line, const std::string &usual_address)
{
    address_ = usual_address;
    line.takes("--page ADDRESS:PORT", address_,
               usual_address.empty() ? "serve a page for browsers there, such as 127.0.0.1:8080"
                                     : "where the page is served; otherwise " + usual_address);
    line.takes("--token TOKEN|@FILE", token_,
               "what a browser has to know; needed where other machines reach the address. Of @FILE the "
               "first line");
}

void PageOptions::listen()
{
    page::Address address;
    try {
        address = page::parse_address(address_);
        if (!token_.empty())
            token_ = page::read_token(token_);
    } catch (const page::Error &error) {
        throw UsageError(error.what());
    }
    try {
        listener_ = std::make_unique<page::Listener>(address, !token_.empty());
    } catch (const page::NeedsToken &error) {
        throw UsageError(error.what());
    }
}

std::string PageOptions::url() const { return "http://" + page::text_of(listener_->address()) + "/"; }

int serve_page(const std::vector<std::string> &words, Settings &)
{
    CommandLine line("page", "Serves a page for browsers on what was kept, without a line, until Ctrl-C.");
    PageOptions page;
    page.add(line, USUAL_ADDRESS);
    std::string records;
    line.takes("--records WHERE", records,
               "a file or postgresql://...; otherwise $STATION_RECORDS, or records.db");
    line.parse(words);
    try {
        page.listen();
        const records::Where where = records::where_of(records);
        records::Source::open(where); // what cannot be read is told at once
        page::Feed feed(station_name(), STATION_VERSION);
        const Interrupts &interrupts = catch_interrupts();
        const page::Server server(page.listener(), page.token(), where, feed, {});
        std::fprintf(stderr, "station: the page is at %s\n", page.url().c_str());
        while (interrupts == 0)
            poll(nullptr, 0, LOOK_MILLISECONDS);
        return INTERRUPTED;
    } catch (const records::Error &error) {
        std::fprintf(stderr, "station: %s\n", escaped(error.what()).c_str());
    } catch (const page::Error &error) {
        std::fprintf(stderr, "station: %s\n", escaped(error.what()).c_str());
    }
    return FAILURE;
}

} // namespace station
