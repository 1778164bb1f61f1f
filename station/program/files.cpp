#include "station/program/files.h"

#include "station/catalogue/options.h"
#include "station/client/errors.h"
#include "station/client/files.h"
#include "station/program/interrupts.h"
#include "station/program/kept_file.h"
#include "station/program/output.h"
#include "station/program/progress_bar.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <unistd.h>

namespace station
{

int serve_push(const std::vector<std::string> &words, Settings &settings)
{
    CommandLine line(
        "push",
        "Puts a file on the phone, by shell lines of the service; its content is checked by a digest.\n"
        "It is written under a name beside PATH and moved when it is whole; a file that is there is "
        "replaced.");
    std::string file, path;
    line.needs("FILE", file, "the file, - for standard input");
    line.needs("PATH", path, "the absolute path on the phone");
    add_request_options(line, settings);
    line.parse(words);
    check(settings);
    const Bytes content = read_whole_file(file);
    Client client(settings.client);
    const ProgressBar bar(!settings.json);
    const Interrupts &interrupts = catch_interrupts();
    const auto progress = [&](size_t done, size_t all) {
        bar.show(done, all, "bytes");
        if (interrupts != 0)
            throw Interrupted("interrupted");
    };
    push_file(client, content, path, progress, [](const std::string &part) {
        say_when_ended("station: interrupted; a part may be left in " + escaped(part));
    });
    say_when_ended("");
    bar.clear();
    print_moved(stdout, settings, path, {content.size(), digest(content)});
    return SUCCESS;
}

static bool copy(std::FILE *from, std::FILE *to)
{
    char piece[65536];
    std::rewind(from);
    while (const size_t count = std::fread(piece, 1, sizeof piece, from))
        std::fwrite(piece, 1, count, to);
    return std::fflush(to) == 0 && !std::ferror(from);
}

int serve_pull(const std::vector<std::string> &words, Settings &settings)
{
    CommandLine line(
        "pull",
        "Fetches a regular file from the phone, by shell lines of the service; its content is checked by\n"
        "a digest. FILE is there when it is whole; a file that is there is replaced. With - for FILE the "
        "content\n"
        "goes to the standard output, and the summary to standard error.");
    std::string file, path;
    line.needs("PATH", path, "the absolute path on the phone");
    line.needs("FILE", file, "where it goes, - for standard output");
    add_request_options(line, settings);
    line.parse(words);
    check(settings);
    std::optional<KeptFile> kept;
    if (file != "-")
        kept.emplace(file);
    std::FILE *const out = kept ? kept->file() : stdout;
    if (isatty(fileno(out)))
        throw UsageError((kept ? file : "the output") +
                         " is a terminal; it would obey what the phone's file holds");
    // What does not get here whole goes nowhere, not to the standard output either.
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> waiting(kept ? nullptr : std::tmpfile(),
                                                                   std::fclose);
    if (!kept && !waiting)
        throw OutputError(std::string("cannot make a temporary file: ") + std::strerror(errno));
    std::FILE *const grows = kept ? kept->file() : waiting.get();
    Client client(settings.client);
    const ProgressBar bar(!settings.json);
    const Moved moved = pull_file(
        client, path,
        [&](const Bytes &part) {
            if (std::fwrite(part.data(), 1, part.size(), grows) != part.size())
                throw OutputError("cannot write " + (kept ? file : "a temporary file") + ": " +
                                  std::strerror(errno));
        },
        [&](size_t done, size_t all) { bar.show(done, all, "bytes"); });
    bar.clear();
    if (kept)
        kept->keep();
    else if (!copy(waiting.get(), stdout))
        throw OutputError(std::string("cannot write the output: ") + std::strerror(errno));
    print_moved(kept ? stdout : stderr, settings, kept ? file : path, moved);
    return SUCCESS;
}

} // namespace station
