// Radio test modes, NFC, the SIM.
#include "station/catalogue/catalogue.h"

namespace station
{

static Command open_daemon(uint16_t code, const char *name, const char *handler, const char *does)
{
    return Command(code, name, handler)
        .does(does)
        .ok("started, and seen running right after")
        .good("EXIST", "it ran already; nothing is started")
        .error("it could not be started, or does not run right after")
        .leaves("The daemon runs until it is closed or the phone restarts.")
        .repeatable()
        .lasts("some 10 ms");
}

static Command close_daemon(uint16_t code, const char *name, const char *handler, const char *does)
{
    return Command(code, name, handler)
        .does(does)
        .ok("it is gone, or did not run")
        .error("it still runs right after SIGTERM; ask again, or look with process-state")
        .leaves("SIGTERM was sent; nothing waits for the daemon's end.")
        .repeatable()
        .lasts("some 10 ms");
}

std::vector<Command> connectivity_commands()
{
    return {
        close_daemon(0x1E00, "close-bt", "diag_cmd_close_bt",
                     "Ends Bluetooth's factory test mode: stops the daemon \"ftmdaemon\"."),
        open_daemon(0x1E01, "open-bt", "diag_cmd_open_bt",
                    "Begins Bluetooth's factory test mode: starts the daemon \"ftmdaemon\"."),
        Command(0x2000, "close-wlan", "diag_cmd_close_wlan")
            .does("Puts the WLAN chip into a clean test mode: Wi-Fi off, the driver unloaded and loaded "
                  "again in test mode. "
                  "The driver is loaded afterwards.")
            .field("4", "u8", "not used")
            .ok("the driver was unloaded and is loaded again")
            .error("a tool could not be started, or the driver would not unload or load")
            .leaves("Each step done stays done: after \"ERROR\" Wi-Fi is off and the driver may be out. A "
                    "stream of the Wi-Fi "
                    "tool stays open in the service each time.")
            .repeatable()
            .lasts("0.2 s and more"),
        Command(0x2001, "open-wlan", "diag_cmd_open_wlan")
            .does("Loads the WLAN driver in factory test mode, unless it is loaded, and checks the mode it "
                  "runs in.")
            .takes(Parameter("MODE", "what to turn on")
                       .byte(SELECTOR_OFFSET,
                             {{"test", 0, "test mode alone"}, {"wifi", 1, "test mode, and Wi-Fi on"}})
                       .optional("test"))
            .field("4", "u8", "0: test mode; 1: test mode and Wi-Fi on; any other value is an error")
            .ok("the driver is loaded and runs in test mode")
            .error("a tool could not be started, the driver is not loaded or not in test mode, or byte 4 is "
                   "neither 0 nor "
                   "1")
            .leaves("What was loaded stays loaded, after \"ERROR\" too.")
            .repeatable()
            .lasts("0.1 s and more"),
        open_daemon(0x2003, "open-wlan-service", "diag_cmd_open_wlan_service",
                    "Starts the socket bridge \"ptt_socket_app\" for the radio test tool."),
        close_daemon(0x2004, "close-wlan-service", "diag_cmd_close_wlan_service",
                     "Stops the socket bridge \"ptt_socket_app\"."),
        Command(0x2400, "close-nfc", "diag_cmd_close_nfc")
            .does("Switches NFC off.")
            .ok("the tool was run; its outcome is not looked at")
            .error("it could not be started")
            .leaves("NFC stays off.")
            .repeatable()
            .lasts("some 10 ms"),
        Command(0x2401, "open-nfc", "diag_cmd_open_nfc")
            .does("Switches NFC on.")
            .ok("the tool was run; its outcome is not looked at")
            .error("it could not be started")
            .leaves("NFC stays on.")
            .repeatable()
            .lasts("some 10 ms"),
        Command(0x2402, "nfc-cplc", "diag_cmd_chk_nfc_cplc")
            .does("Checks that the secure element answers with its life cycle data.")
            .takes(
                Parameter("MODE", "how to ask")
                    .byte(SELECTOR_OFFSET, {{"normal", 1, "through the running NFC service"},
                                            {"ffbm", 0, "directly, in factory test mode; switches NFC off"}})
                    .optional("normal"))
            .field("4", "u8",
                   "1: the normal check; 0: the check for factory test mode; any other value is an error")
            .ok("it does")
            .error("it does not, NFC is not in the state the check needs, or byte 4 is neither 0 nor 1")
            .leaves("The check for factory test mode leaves NFC switched off. A check that has passed is not "
                    "run again until "
                    "the service is started anew.")
            .repeatable()
            .lasts("tens of milliseconds"),
        Command(0x2403, "nfc-deid", "diag_cmd_chk_nfc_deid")
            .does("Checks that the NFC chip tells its die id; switches NFC off for it.")
            .ok("it does")
            .error("it does not, NFC would not go off, or the chip's device is missing")
            .leaves("NFC is left switched off. A check that has passed is not run again until the service is "
                    "started anew.")
            .repeatable()
            .lasts("0.1 s"),
        Command(0x2600, "stop-wireless-test", "diag_cmd_stop_wireless_test")
            .does("Stops the diagnostic log tool after a wireless test.")
            .ok("the tool says that it is stopping")
            .error("it could not be started or does not say so")
            .leaves("The tool's stream stays open in the service each time.")
            .repeatable()
            .lasts("some 10 ms"),
        Command(0x5000, "sim-state", "diag_cmd_check_sim_insert")
            .does("Reads the state of the SIM slots, the property \"gsm.sim.state\".")
            .error("the property is not set or empty")
            .value("the state",
                   "as the property holds it (LOADED, ABSENT and so on, one word for each slot); the station "
                   "judges it")
            .leaves("Nothing.")
            .repeatable(),
    };
}

} // namespace station
