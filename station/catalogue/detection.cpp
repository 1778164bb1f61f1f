// Component detection at the board and at the phone level.
#include "station/catalogue/catalogue.h"

namespace station
{

static constexpr char RESULT_MEANING[] =
    "for each missing component its name, \":F\" and a zero byte, the last zero byte counted too";
static constexpr char DETECTION_LEAVES[] =
    "A component once found counts as found until the service is started again, at either "
    "level; a check that has passed is not run again. Missing ones are probed anew by every "
    "request.";

static Command detection(uint16_t code, const char *name, const char *handler, const char *does)
{
    return Command(code, name, handler)
        .does(does)
        .good("P", "all components answer")
        .error("the service's own component table is unsound; does not happen")
        .bad_value("missing components", RESULT_MEANING, missing_components)
        .leaves(DETECTION_LEAVES)
        .repeatable()
        .lasts("as long as some fifteen tools take one after another; up to seconds on a phone, milliseconds "
               "once all "
               "were found");
}

std::vector<Command> detection_commands()
{
    return {
        detection(0x013D, "detect-board", "diag_cmd_board_component_detect_v2",
                  "Checks the components of a bare main board: codec, rgb0, rgb1, acc, gyro, ft_ic, "
                  "vibrator, smartpa_l, "
                  "smartpa_r, bq25790, smb1396_master, smb1396_slave, smb1396_slave2, max77932."),
        detection(
            0x013E, "detect-phone", "diag_cmd_phone_component_detect_v2",
            "Checks the components of a finished phone: those of the board and cam_backmain, cam_backultra, "
            "cam_frontmain, cam_backmacro2x, display, magnetic, lightsns, tp, fp."),
    };
}

} // namespace station
