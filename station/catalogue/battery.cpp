// Battery gauge, charging, the two cells, the thermal engine.
#include "station/catalogue/catalogue.h"

namespace station
{

static constexpr char STAYS[] = "It stays so until a command takes it back or the phone restarts.";

std::vector<Command> battery_commands()
{
    return {
        Command(0x0140, "stop-thermal-engine", "diag_cmd_stop_thermal_engine")
            .does("Stops the thermal service, lifts the cooling limit and starts the factory thermal tool, "
                  "before heavy "
                  "tests.")
            .ok("stopped and lifted; what came of the factory tool is not looked at")
            .error("the service could not be told to stop or still runs, or the limit could not be lifted or "
                   "does not "
                   "read 0 afterwards")
            .leaves(
                "The thermal service stays stopped until the phone restarts, also when a later step failed.")
            .lasts("as long as the factory thermal tool runs"),
        Command(0x0C00, "set-battery-capacity", "diag_cmd_set_battery_cap")
            .does("Makes the battery gauge show a capacity.")
            .takes({"PERCENT", "the capacity as text, as the gauge's node takes it"})
            .encoded(text_of("PERCENT"))
            .field("5-6", "u16", "how many bytes of the text are written; without its terminating zero")
            .field("7..", "text", "the capacity and a terminating zero byte")
            .ok("written")
            .error("the node cannot be opened or refuses the value")
            .leaves(STAYS)
            .repeatable(),
        Command("diag_cmd_get_battery_info",
                {{0x0C01, "battery-capacity", "the state of charge in percent"},
                 {0x0C02, "battery-voltage", "the battery's voltage as its driver reports it"},
                 {0x0C03, "battery-current", "the battery's current as its driver reports it"},
                 {0x0C04, "charger-type", "the type of the USB charger"}})
            .does("Reads a value of the battery or the charger; the code tells which.")
            .error("the node cannot be read")
            .empty(true, "the node is empty")
            .value("the value",
                   "the node's text, at most 256 bytes, unconverted; its closing line feed is not counted")
            .leaves("Nothing.")
            .repeatable(),
        Command("diag_cmd_control_usb_charge", {{0x0C1E, "stop-charging", "charging from USB is suspended"},
                                                {0x0C1F, "start-charging", "charging from USB goes on"}})
            .does("Suspends or resumes charging from USB; the code tells which.")
            .ok("done")
            .error("the node cannot be written")
            .leaves(STAYS)
            .repeatable(),
        Command(0x0C0A, "select-cell", "diag_cmd_set_charge_type")
            .does("Selects a cell of the two-cell battery and reads the selection back.")
            .takes(Parameter("CELL", "0 or 1").byte(SELECTOR_OFFSET))
            .field("4", "u8", "0 or 1")
            .ok("selected and read back")
            .error("another value than 0 and 1 (nothing is touched), or the node cannot be written or reads "
                   "otherwise")
            .leaves("It stays so until a command takes it back or the phone restarts. A read-back that fails "
                    "leaves a descriptor of the node open in the service.")
            .repeatable(),
        Command(0x0C0B, "cell-state", "diag_cmd_get_charge_type")
            .does("Reads the state of the two-cell battery's controller.")
            .error("the node cannot be read")
            .empty(true, "the node is empty")
            .value("the state", "the node's text; its meaning is the controller's")
            .leaves("Nothing.")
            .repeatable(),
        Command(0x0C0C, "cell-voltage-difference", "diag_cmd_get_voltage_minus")
            .does("Reads both cells' voltages and answers their difference without its sign. The last "
                  "character of each "
                  "node's text is dropped, line feed or not.")
            .error("one of the nodes cannot be read")
            .value("the difference", "decimal, in the unit of the driver")
            .leaves("Nothing.")
            .repeatable(),
    };
}

} // namespace station
