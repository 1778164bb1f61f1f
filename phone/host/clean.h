// What the phone wrote, made fit for the user's terminal.
#pragma once

#include <string>
#include <string_view>

namespace host
{

// Keeps its state between two pieces of one stream.
class Cleaner
{
  public:
    // With `interactive`, a terminal's moves and colours pass: what moves the cursor, erases, colours, shows
    // or hides the cursor and takes the second screen. Nothing that answers, renames, copies, remembers or
    // reports.
    explicit Cleaner(bool interactive = false) : interactive_(interactive) {}

    // Printable UTF-8, tabs and line feeds pass; any other byte is shown as \xNN.
    std::string clean(std::string_view bytes);
    // What is still held of a character that never ended.
    std::string end();
    // Undoes what may have been switched on; empty when nothing may.
    [[nodiscard]] std::string reset() const;

  private:
    enum class Place { TEXT, ESCAPE, CHARSET, SEQUENCE, STRING, STRING_ESCAPE };

    void take(unsigned char byte, std::string &out);
    void take_text(unsigned char byte, std::string &out);
    void take_sequence(unsigned char byte, std::string &out);

    bool interactive_;
    bool second_screen_ = false;
    Place place_ = Place::TEXT;
    std::string held_; // of a character or a sequence
    size_t wanted_ = 0;
};

} // namespace host
