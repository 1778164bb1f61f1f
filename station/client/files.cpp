#include "station/client/files.h"

#include "station/client/encode.h"
#include "station/client/errors.h"

#include <algorithm>
#include <array>
#include <random>
#include <sha256.h>

namespace station
{

static constexpr uint16_t SHELL_OUTPUT = 0xE606;
static constexpr size_t SHELL_OUTPUT_RESPONSE = 775;
static constexpr size_t LINE_MAX_LENGTH = 512; // of a shell line
// Bytes of an answer: 752 digits in lines of 76 and their line feeds, of 768 that there is room for.
static constexpr size_t PULL_CHUNK = 564;
static constexpr size_t PULL_MAX = size_t{1} << 30; // hours, at this pace
static constexpr char DIGITS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

static std::string to_base64(const uint8_t *bytes, size_t count)
{
    std::string text;
    for (size_t at = 0; at < count; at += 3) {
        uint32_t group = 0;
        for (size_t i = 0; i < 3; i++)
            group = group << 8 | (at + i < count ? bytes[at + i] : 0U);
        for (size_t i = 0; i < 4; i++)
            text += at + i > count ? '=' : DIGITS[group >> (18 - 6 * i) & 0x3F];
    }
    return text;
}

// Throws PhoneError on anything but base64.
static Bytes from_base64(const std::string &text)
{
    Bytes bytes;
    uint32_t bits = 0;
    unsigned count = 0;
    for (const char character : text) {
        if (character == '\n' || character == '=')
            continue;
        const size_t digit = std::string_view(DIGITS).find(character);
        if (digit == std::string_view::npos)
            throw PhoneError("the phone answers '" + text + "' where a part of the file should come");
        bits = bits << 6 | static_cast<uint32_t>(digit);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes.push_back(static_cast<uint8_t>(bits >> count));
        }
    }
    return bytes;
}

namespace
{

class Digester
{
  public:
    Digester() { SHA256Init(&context_); }
    void add(const Bytes &content) { SHA256Update(&context_, content.data(), content.size()); }
    std::string end()
    {
        char text[SHA256_DIGEST_STRING_LENGTH];
        SHA256End(&context_, text);
        return text;
    }

  private:
    SHA2_CTX context_ = {};
};

} // namespace

std::string digest(const Bytes &content)
{
    Digester digester;
    digester.add(content);
    return digester.end();
}

// A line that knows the path as "$f" and tells its errors in its output. Throws UsageError when it is too
// long.
static std::string line_of(const std::string &path, const std::string &rest)
{
    std::string line = "exec 2>&1;f='";
    for (const char character : path)
        line += character == '\'' ? std::string("'\\''") : std::string(1, character);
    line += "';" + rest;
    if (line.size() > LINE_MAX_LENGTH)
        throw UsageError("the path on the phone is too long: a shell line has " +
                         std::to_string(LINE_MAX_LENGTH) + " bytes, and the path stands in it");
    return line;
}

static Question question(const std::string &line, bool repeatable)
{
    Question asked;
    asked.packet = empty_request(SHELL_OUTPUT);
    put_text(asked.packet, line);
    asked.repeatable = repeatable;
    asked.response_size = SHELL_OUTPUT_RESPONSE;
    return asked;
}

// What the line prints, without a line feed at its end. Throws PortError, Refused and PhoneError.
static std::string output_of(Client &client, const std::string &line, bool repeatable = true)
{
    const Exchange exchange = client.ask(question(line, repeatable));
    if (exchange.outcome == Outcome::silence)
        throw PortError(exchange.problem);
    if (exchange.outcome == Outcome::refused)
        throw Refused(exchange.problem);
    const Bytes &packet = exchange.packet;
    const auto data = packet.begin() + DATA_OFFSET;
    std::string text(data, data + get_u16(packet, LENGTH_OFFSET));
    if (text == "ERROR")
        throw PhoneError("the phone could not start a shell");
    return text;
}

static void refuse_impossible(const std::string &path)
{
    if (path[0] != '/' || path.back() == '/' || path.find('\0') != std::string::npos)
        throw UsageError("the path on the phone is absolute and a file's, not '" + path + "'");
}

// What `wc` prints, which some pad.
static bool is_number(const std::string &output, size_t number)
{
    const size_t begin = output.find_first_not_of(' ');
    return begin != std::string::npos && output.substr(begin) == std::to_string(number);
}

static void expect_number(const std::string &output, size_t number, const std::string &what)
{
    if (!is_number(output, number))
        throw PhoneError(what + ": the phone says '" + output + "'");
}

static void expect_digest(const std::string &output, const std::string &expected, const std::string &what)
{
    const size_t end = output.find(' ');
    if (output.substr(0, end) != expected)
        throw PhoneError(what + ": its SHA-256 here is " + expected + ", the phone says '" + output + "'");
}

// Appends bytes to a file that has `size` of them. When the answer is lost, the file's size tells whether
// they got there.
static void append(Client &client, const std::string &line, const std::string &size_line, size_t size,
                   size_t count)
{
    const std::string what = "writing stops at byte " + std::to_string(size);
    for (int tries = client.settings().retries;; tries--) {
        try {
            expect_number(output_of(client, line, false), size + count, what);
            return;
        } catch (const PortError &) {
            if (tries <= 0)
                throw;
        }
        const std::string now = output_of(client, size_line);
        if (is_number(now, size + count))
            return;
        expect_number(now, size, what);
    }
}

// Behind a failure that is worth more than this one's. Whether it is known to have gone.
static bool remove_quietly(Client &client, const std::string &line)
{
    try {
        return output_of(client, line).empty();
    } catch (const std::runtime_error &) {
        return false;
    }
}

static std::string left_in(const std::string &part) { return "; a part may be left in " + part; }

void push_file(Client &client, const Bytes &content, const std::string &path, const Progress &progress,
               const std::function<void(const std::string &part)> &begins)
{
    refuse_impossible(path);
    char suffix[16];
    std::snprintf(suffix, sizeof suffix, ".%06x.part", std::random_device{}() & 0xFFFFFF);
    const std::string part = "\"$f" + std::string(suffix) + "\"";
    const std::string size_of_part = "wc -c <" + part;
    const std::string before = "echo ", behind = "|base64 -d >>" + part + "&&" + size_of_part;
    const std::string to_its_place =
        "[ ! -e \"$f\" ]||chmod \"$(stat -c %a \"$f\")\" " + part + ";mv -f " + part + " \"$f\"&&echo ok";
    // The longest of the lines: a path that passes it passes them all.
    const std::string kind = output_of(
        client, line_of(path, "if [ -L \"$f\" ];then echo a link;elif [ -d \"$f\" ];then echo a folder;"
                              "elif [ -e \"$f\" ]&&[ ! -f \"$f\" ];then echo no regular file;"
                              "else echo ok;fi"));
    if (kind != "ok")
        throw PhoneError(path + " is " + kind + ": nothing was written");
    const size_t chunk = (LINE_MAX_LENGTH - line_of(path, before + behind).size()) / 4 * 3;
    begins(path + suffix);
    expect_number(output_of(client, line_of(path, "set -C;: >" + part + "&&" + size_of_part), false), 0,
                  "nothing was written");
    try {
        for (size_t at = 0; at < content.size(); at += chunk) {
            const size_t count = std::min(chunk, content.size() - at);
            std::string command = before;
            command += to_base64(content.data() + at, count);
            command += behind;
            append(client, line_of(path, command), line_of(path, size_of_part), at, count);
            progress(at + count, content.size());
        }
        expect_digest(output_of(client, line_of(path, "sha256sum <" + part)), digest(content),
                      "the content did not get there whole");
        const std::string moved = output_of(client, line_of(path, to_its_place), false);
        if (moved != "ok")
            throw PhoneError("the file could not be moved to its place: the phone says '" + moved + "'");
    } catch (const PhoneError &error) {
        const bool is_gone = remove_quietly(client, line_of(path, "rm -f " + part));
        throw PhoneError(error.what() + (is_gone ? "" : left_in(path + suffix)));
    } catch (const Interrupted &error) {
        const bool is_gone = remove_quietly(client, line_of(path, "rm -f " + part));
        throw Interrupted(std::string(error.what()) + ": " + path + " is as it was" +
                          (is_gone ? "" : left_in(path + suffix)));
    } catch (const PortError &error) {
        throw PortError(error.what() + left_in(path + suffix));
    }
}

Moved pull_file(Client &client, const std::string &path, const Sink &sink, const Progress &progress)
{
    refuse_impossible(path);
    const std::string chunk_line = "dd if=\"$f\" bs=" + std::to_string(PULL_CHUNK) + " count=1 skip=";
    const std::string behind = " 2>/dev/null|base64";
    // The longest of the lines, too.
    const std::string told = output_of(
        client,
        line_of(path, "if [ -f \"$f\" ];then wc -c <\"$f\";else ls -d \"$f\"&&echo no regular file;fi"));
    const std::string digits = told.substr(std::min(told.find_first_not_of(' '), told.size()));
    if (digits.find_first_not_of("0123456789") != std::string::npos)
        throw PhoneError("nothing can be read: the phone says '" + told + "'");
    // What comes from a phone is bounded, whatever it says of itself.
    const size_t size = std::strtoull(digits.c_str(), nullptr, 10);
    if (size > PULL_MAX)
        throw PhoneError(path + " has " + digits + " bytes; more than " + std::to_string(PULL_MAX) +
                         " are not fetched");
    Digester digester;
    size_t done = 0;
    for (size_t skip = 0; done < size; skip++) {
        std::string command = chunk_line;
        command += std::to_string(skip);
        command += behind;
        const Bytes part = from_base64(output_of(client, line_of(path, command)));
        digester.add(part);
        sink(part);
        done += part.size();
        progress(done, size);
        if (part.size() != PULL_CHUNK)
            break;
    }
    const std::string digest = digester.end();
    expect_digest(output_of(client, line_of(path, "sha256sum <\"$f\"")), digest,
                  "the file was changed while it was read, or it cannot be read at all");
    return {done, digest};
}

} // namespace station
