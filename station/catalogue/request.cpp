#include "station/catalogue/request.h"

#include "station/catalogue/options.h"
#include "station/catalogue/page.h"
#include "station/catalogue/suggest.h"
#include "station/client/encode.h"
#include "station/client/errors.h"

#include <algorithm>
#include <map>
#include <memory>

namespace station
{

// Over a connection that is made and a table that is begun these change nothing any more.
static void refuse_idle_options(const CommandLine &line)
{
    for (const char *name : {"--port", "--trace", "--json", "--plain", "--raw-hex"})
        if (!line.given(name).empty())
            throw UsageError(line.name() + ": " + name +
                             " takes no effect in a script's line; give it to `station run`");
}

static std::string quoted(const std::string &word)
{
    if (!word.empty() && word.find_first_of(" \t\n'\"\\") == std::string::npos)
        return word;
    std::string text = "\"";
    for (const char character : word) {
        if (character == '"' || character == '\\')
            text += '\\';
        text += character;
    }
    return text + '"';
}

// The arguments as one would type them: options, if a positional one begins with '-', before "--".
static std::string shown(const std::vector<std::string> &options, const std::vector<std::string> &positional)
{
    const bool parted = std::any_of(positional.begin(), positional.end(),
                                    [](const std::string &word) { return word[0] == '-'; });
    std::vector<std::string> words = parted ? options : positional;
    if (parted)
        words.emplace_back("--");
    const std::vector<std::string> &others = parted ? positional : options;
    words.insert(words.end(), others.begin(), others.end());
    std::string text;
    for (const std::string &word : words)
        text += (text.empty() ? "" : " ") + (word == "--" ? word : quoted(word));
    return text;
}

static std::string shown(const Command &command, const Arguments &arguments)
{
    std::vector<std::string> options, positional;
    for (const Parameter &parameter : command.parameters)
        for (const std::string &word : arguments.at(parameter.key()))
            if (parameter.is_option())
                options.insert(options.end(), {parameter.key(), word});
            else
                positional.push_back(word);
    return shown(options, positional);
}

// What the word of a byte stands for.
static uint8_t byte_of(const Parameter &parameter, const std::string &word)
{
    std::string what = parameter.key();
    for (const Choice &choice : parameter.choices) {
        if (word == choice.word)
            return choice.value;
        what += (&choice == &parameter.choices.front() ? " is one of " : ", ") + std::string(choice.word);
    }
    if (!parameter.choices.empty())
        what += ", or";
    return static_cast<uint8_t>(parse_number(word, 0, 255, what));
}

static void put_byte(size_t offset, uint8_t value, Bytes &packet)
{
    packet.resize(std::max(packet.size(), offset + 1));
    packet[offset] = value;
    put_u16(packet, LENGTH_OFFSET, static_cast<unsigned>(packet.size() - DATA_OFFSET));
}

static Bytes packet_of(const Command &command, uint16_t code, const Arguments &arguments)
{
    Bytes packet = empty_request(code);
    for (const Parameter &parameter : command.parameters) {
        if (!parameter.offset)
            continue;
        const std::vector<std::string> &given = arguments.at(parameter.key());
        if (!given.empty() || parameter.standard)
            put_byte(*parameter.offset,
                     byte_of(parameter, given.empty() ? parameter.standard : given.front()), packet);
    }
    if (command.encoder)
        command.encoder(arguments, packet);
    return packet;
}

namespace
{

// How a command is asked for in words. It is made once: a plan may have many thousand lines.
struct Asking {
    Asking(const Command &command, uint16_t code)
        : line(command.name_of(code).name, command_page(command, code))
    {
        for (const Parameter &parameter : command.parameters) {
            std::string help = parameter.meaning;
            for (const Choice &choice : parameter.choices)
                help += std::string(&choice == &parameter.choices.front() ? ": " : ", ") + choice.word;
            if (parameter.required)
                line.needs(parameter.form, arguments[parameter.key()], help);
            else
                line.takes(parameter.form, arguments[parameter.key()], help);
        }
        add_request_options(line, settings);
    }

    // What is not among the words is as it was given, or empty.
    void parse(const std::vector<std::string> &words, const Settings &given)
    {
        settings = given;
        for (auto &[key, values] : arguments)
            values.clear();
        line.parse(words);
    }

    CommandLine line;
    Arguments arguments;
    Settings settings;
};

} // namespace

static Asking &asking(const Command &command, uint16_t code)
{
    static thread_local std::map<uint16_t, std::unique_ptr<Asking>> made;
    std::unique_ptr<Asking> &asking = made[code];
    if (!asking)
        asking = std::make_unique<Asking>(command, code);
    return *asking;
}

static Request named_request(const Command &command, uint16_t code, const std::vector<std::string> &words,
                             Settings &settings, Place place)
{
    Asking &asked = asking(command, code);
    asked.parse({words.begin() + 1, words.end()}, settings);
    settings = asked.settings;
    const Arguments &arguments = asked.arguments;
    if (place == Place::script)
        refuse_idle_options(asked.line);

    Request request;
    request.code = code;
    request.command = &command;
    request.name = words.front();
    request.words = shown(command, arguments);
    request.packet = packet_of(command, code, arguments);
    if (command.when_sent_if &&
        arguments.at(command.when_sent_if) == std::vector<std::string>{command.when_sent_word})
        request.fresh = [&command, code, arguments] { return packet_of(command, code, arguments); };
    return request;
}

static uint16_t parse_code(const std::string &text)
{
    uint16_t code = 0;
    if (find_command(text, code))
        return code;
    return static_cast<uint16_t>(parse_number(text, 0, 0xFFFF, "CODE is a command's name, or"));
}

static Request sent_request(const std::vector<std::string> &words, Settings &settings, Place place)
{
    CommandLine line("send", "Sends a request of any code and content.");
    std::string code, text, hex, file, body;
    int selector = 0, length = 0;
    line.needs("CODE", code, "a code (0xE602) or a name (get-prop)");
    line.takes("--byte4 BYTE", selector, {0, 255}, "the selector, byte 4");
    line.takes("--length NUMBER", length, {0, 65535},
               "the length field, when it shall not be the data's own");
    line.choice("data", "the data field; empty without any of these");
    line.takes("--text TEXT", text, "a text; a zero byte follows it, which the length does not count");
    line.takes("--hex HEX", hex, "bytes in hexadecimal");
    line.takes("--file PATH", file, "a file's content, - for standard input");
    line.takes("--body HEX", body,
               "everything behind the head in hexadecimal: byte 4, length and data as given");
    add_request_options(line, settings);
    line.parse({words.begin() + 1, words.end()});
    if (place == Place::script)
        refuse_idle_options(line);

    Request request;
    request.code = parse_code(code);
    request.command = find_command(request.code);
    request.name = request.command ? request.command->name_of(request.code).name : code_text(request.code);
    std::vector<std::string> options;
    for (const char *name : {"--text", "--hex", "--file", "--body", "--byte4", "--length"})
        for (const std::string &word : line.given(name))
            options.insert(options.end(), {name, word});
    request.words = shown(options, {code});
    request.packet = empty_request(request.code);
    const auto is_given = [&](const char *name) { return !line.given(name).empty(); };
    if (is_given("--text"))
        put_text(request.packet, text);
    else if (is_given("--hex"))
        put_data(request.packet, from_hex(hex));
    else if (is_given("--file"))
        put_data(request.packet, read_whole_file(file));
    else if (is_given("--body")) {
        const Bytes bytes = from_hex(body);
        request.packet.resize(SELECTOR_OFFSET);
        request.packet.insert(request.packet.end(), bytes.begin(), bytes.end());
        if (is_given("--byte4") || is_given("--length"))
            throw UsageError("send: --body holds byte 4 and the length itself");
    }
    if (is_given("--byte4"))
        request.packet[SELECTOR_OFFSET] = static_cast<uint8_t>(selector);
    if (is_given("--length"))
        put_u16(request.packet, LENGTH_OFFSET, static_cast<unsigned>(length));
    return request;
}

// A packet that ends before its selector has 0 there.
static uint8_t selector_of(const Bytes &packet)
{
    return packet.size() > SELECTOR_OFFSET ? packet[SELECTOR_OFFSET] : 0;
}

Request parse_request(const std::vector<std::string> &words, Settings &settings, Place place)
{
    if (words.empty())
        throw UsageError("no request");
    Request request;
    if (words.front() == "send")
        request = sent_request(words, settings, place);
    else {
        uint16_t code = 0;
        const Command *command = find_command(words.front(), code);
        if (!command)
            throw UsageError("'" + words.front() + "' is no command; `station list` shows them all" +
                             suggestion(words.front(), command_names()));
        request = named_request(*command, code, words, settings, place);
    }
    if (request.command) {
        request.repeatable = request.command->safe_to_repeat;
        request.response_size = request.command->response_size;
        request.takes_phone_down =
            request.command->phone_goes_down &&
            (!request.command->down_only_with_zero_selector || selector_of(request.packet) == 0);
    }
    return request;
}

std::vector<Word> split_line(const std::string &line)
{
    std::vector<Word> words;
    Word word;
    bool inside = false;
    char quote = 0;
    for (size_t i = 0; i < line.size(); i++) {
        const char character = line[i];
        const char next = line[i + 1]; // behind the last one a zero
        // As in a shell: within double quotes a backslash is only itself unless it hides a quote or another
        // one.
        if (character == '\\' && next && (!quote || (quote == '"' && (next == '"' || next == '\\')))) {
            word.text += line[++i];
            word.quoted = inside = true;
        } else if (quote && character == quote) {
            quote = 0;
        } else if (!quote && (character == '"' || character == '\'')) {
            quote = character;
            word.quoted = inside = true;
        } else if (!quote && (character == ' ' || character == '\t' || character == '\r')) {
            if (inside)
                words.push_back(std::move(word));
            word = {};
            inside = false;
        } else {
            if (character == '$' && quote != '\'')
                word.dollars.push_back(word.text.size());
            word.text += character;
            inside = true;
        }
    }
    if (quote)
        throw UsageError("a quotation mark stays open");
    if (inside)
        words.push_back(std::move(word));
    return words;
}

std::vector<std::string> split_words(const std::string &line)
{
    std::vector<std::string> texts;
    for (Word &word : split_line(line))
        texts.push_back(std::move(word.text));
    return texts;
}

} // namespace station
