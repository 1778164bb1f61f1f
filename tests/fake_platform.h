// Recording versions of the phone's four libraries, and what every test of a command needs: ask a handler as
// the router does, put tools and nodes into the sandbox, look at what was logged, run and left behind.
#pragma once

#include <diag.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

struct reboot_request {
    unsigned int command;
    int flags;
    std::string reason; // "(none)" for a null one
    bool awake;         // DIAG_WAKELOCK was held
    double seconds;     // since the start of the test
};

// What the libraries have seen and what they answer. Reset before each test.
struct fake_phone {
    std::map<std::string, std::string> properties;
    std::set<std::string> unreadable_properties; // property_get answers -1
    std::set<std::string> refused_properties;    // property_set answers -1
    std::vector<std::string> log;                // as "[name]:message\n"
    std::vector<std::string> bad_log;            // lines of another priority or tag
    std::vector<unsigned int> allocated_codes;
    std::multiset<std::string> wake_locks;
    std::vector<reboot_request> reboots;
    int reboot_result = 0;
    bool allocation_fails = false;
    int failing_popen = 0; // the line from now that cannot be started; 0: all can
};

using strings = std::vector<std::string>;
// What there is, and what a command answers then.
using answers = std::initializer_list<std::pair<std::string, std::string>>;

struct response {
    bool null = false;          // no reply
    std::vector<uint8_t> bytes; // the whole response
    uint16_t length = 0;        // as bytes 5-6 tell
    std::string text;           // that many bytes of the data, cut at the end of the response
    std::string data;           // the whole data field
};

class Phone : public testing::Test
{
  protected:
    void SetUp() override;
    void TearDown() override; // no child is left; descriptors only as many as a test has announced

    // The entry of the registered table, or null; and a request as the router hands it over, zero behind the
    // packet.
    static const diagpkt_entry *entry_of(uint16_t code);
    static std::vector<uint8_t> packet_of(uint16_t code, uint8_t selector, const std::string &data,
                                          int length);
    // Sends a request through the registered table. `length` is what bytes 5-6 say; by default the number of
    // data bytes.
    static response ask(uint16_t code, uint8_t selector = 0, const std::string &data = "", int length = -1);
    // The same with the text's terminating zero as part of the data.
    static response ask_text(uint16_t code, const std::string &text, uint8_t selector = 0);

    // Puts a tool into /system/bin (or at an absolute path) whose runs are recorded; `script` is what it does
    // then.
    static void tool(const std::string &name, const std::string &script);
    static void remove_tool(const std::string &name);
    // The runs so far, each as the tool's name and its arguments.
    static strings runs();

    static void node(const std::string &path, const std::string &content); // made with its folders
    static std::string content(const std::string &path);                   // "(missing)" when it is not there
    static bool exists(const std::string &path);
    // A link in a node's place: the null device takes everything and keeps nothing, the full device takes
    // nothing.
    static void link_node(const std::string &path, const std::string &target);

    // The answers to what a tool does, a node holds or a property says.
    static void expect_by_tool(uint16_t code, const std::string &name, answers rows, uint8_t selector = 0);
    static void expect_by_node(uint16_t code, const std::string &path, answers rows, uint8_t selector = 0);
    static void expect_by_property(uint16_t code, const std::string &key, answers rows, uint8_t selector = 0);

    static bool logged(const std::string &line); // "[name]:message\n", exactly
    static int times_logged(const std::string &line);
    static void forget_log();

    int descriptors_left_open = 0; // what the test expects to find open beyond what was there before

  private:
    int descriptors_before = 0;
};

fake_phone &the_phone(); // guarded where the service's threads write to it

int open_descriptors();

// Waits until `count` reboots were asked for, or 10 s.
void wait_for_reboots(size_t count);
