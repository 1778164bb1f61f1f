// The radios in their test modes: Bluetooth, WLAN, NFC, the wireless test; and the SIM.
#include <cutils.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "core/command.h"
#include "core/files.h"
#include "core/shell.h"
#include "hwdec/checks.h"

namespace
{
// A test daemon of a radio, and what its start and stop say.
struct radio_daemon {
    const char *name;
    const char *start_line;
    bool (*start)(const char *line);
    const char *already_open;
    const char *opened;
    const char *not_opened;
    const char *kill; // begins the line that tells how many were found
    const char *word; // the daemon's in the lines about its end
    bool counts_left; // tells how many still run
};

struct nfc_switch {
    const char *line;
    const char *done;
    const char *failed;
};
} // namespace

static bool start_by_system(const char *line) { return diag_cmd_system_send(line) == 0; }

static constexpr radio_daemon BT_DAEMON = {
    "ftmdaemon",
    "ftmdaemon -n &",
    start_by_system,
    "ftmdaemon already open!",
    "BT FTMDAEMON open successful.",
    "FTMDAEMON open failed.",
    "Kill FTMDAEMON count",
    "FTMDAEMON",
    false,
};
static constexpr radio_daemon WLAN_SERVICE = {
    "ptt_socket_app",
    "ptt_socket_app -v -d -f &",
    diag_cmd_handle_system,
    "ptt_socket_app already open",
    "Open wlan service successfully.",
    "Open wlan service failed.",
    "Kill WLAN_SERVICE succ! ret",
    "WLAN_SERVICE",
    true,
};
static constexpr char RUNNING_ALREADY[] = "EXIST";
static constexpr useconds_t DAEMON_STARTS = 50'000; // microseconds from the shell's "&" to the daemon's name

static constexpr char LOAD_WLAN[] = "insmod vendor/lib/modules/qca_cld3_wlan.ko con_mode_ftm=5";
static constexpr char UNLOAD_WLAN[] = "rmmod wlan";
static constexpr char LIST_MODULES[] = "lsmod";
static constexpr char WLAN_MODULE[] = "wlan";
static constexpr char WLAN_MODE[] = "/sys/module/wlan/parameters/con_mode_ftm";
static constexpr char TEST_MODE[] = "5";
static constexpr char WIFI_ON[] = "/system/bin/svc wifi enable";
static constexpr char WIFI_OFF[] = "/system/bin/svc wifi disable";
static constexpr useconds_t MODULE_SETTLES = 100'000; // microseconds

static constexpr int OPEN_TEST_MODE = 0;
static constexpr int OPEN_WITH_WIFI = 1;

static constexpr nfc_switch NFC_ON = {"svc nfc enable", "Run shell script successfully, nfc open",
                                      "Nfc open failed"};
static constexpr nfc_switch NFC_OFF = {"svc nfc disable", "Run shell script successfully,nfc close",
                                       "Nfc close failed"};

static constexpr uint8_t CPLC_FFBM = 0; // the selectors of the CPLC check
static constexpr uint8_t CPLC_NORMAL = 1;

static constexpr char STOP_LOG_TOOL[] = "diag_socket_log -k";
static constexpr char LOG_TOOL_STOPS[] = "stopping";
static constexpr size_t LOG_TOOL_LINE = 768;

static constexpr char SIM_STATE[] = "gsm.sim.state";
static constexpr int SIM_STATE_LIMIT = 255; // what the answer's length may tell

static int running(const char *name)
{
    int32_t ids[PROCESS_LIMIT] = {};
    uint8_t count = 0;
    diag_get_processpid_by_name(name, ids, &count);
    return count;
}

static void *start(const char *handler, uint8_t *response, const radio_daemon &daemon)
{
    if (running(daemon.name) > 0) {
        diag_log(handler, "%s\n", daemon.already_open);
        return answer_text(response, RUNNING_ALREADY);
    }
    bool up = daemon.start(daemon.start_line);
    if (up) {
        usleep(DAEMON_STARTS);
        up = running(daemon.name) > 0;
    }
    diag_log(handler, "%s\n", up ? daemon.opened : daemon.not_opened);
    return up ? answer_ok(response) : answer_error(response);
}

// A daemon that takes its time to end after the signal still runs, and is answered so.
static void *stop(const char *handler, uint8_t *response, const radio_daemon &daemon)
{
    if (running(daemon.name) == 0)
        return answer_ok(response);
    diag_log(handler, "%s:%d\n", daemon.kill, diag_kill_exist_process(daemon.name));
    const int left = running(daemon.name);
    if (left == 0)
        diag_log(handler, "%s be killed.\n", daemon.word);
    else if (daemon.counts_left)
        diag_log(handler, "%s not be killed,count:%d\n", daemon.word, left);
    else
        diag_log(handler, "%s not be killed.\n", daemon.word);
    return left == 0 ? answer_ok(response) : answer_error(response);
}

void *diag_cmd_close_bt(const void *, uint8_t *response) { return stop(__func__, response, BT_DAEMON); }

void *diag_cmd_open_bt(const void *, uint8_t *response) { return start(__func__, response, BT_DAEMON); }

void *diag_cmd_open_wlan_service(const void *, uint8_t *response)
{
    return start(__func__, response, WLAN_SERVICE);
}

void *diag_cmd_close_wlan_service(const void *, uint8_t *response)
{
    return stop(__func__, response, WLAN_SERVICE);
}

static bool wlan_is_loaded() { return diag_cmd_compare_msg(LIST_MODULES, WLAN_MODULE); }

// Takes WLAN out and loads it again in test mode: a closed radio is a freshly loaded one. The argument is not
// used. 0 or -1.
static int rmmod(int)
{
    command_stream wifi = run_command(WIFI_OFF);
    if (!wifi) {
        LOG("send svc wifi disable fail\n");
        return -1;
    }
    (void)wifi.release(); // never waited for: the line goes on while Wi-Fi winds down
    if (!run_line_and_wait(UNLOAD_WLAN)) {
        LOG("send rmmod waln fail\n");
        return -1;
    }
    usleep(MODULE_SETTLES);
    if (wlan_is_loaded()) {
        LOG("rmmod wlan failed\n");
        return -1;
    }
    if (!run_line_and_wait(LOAD_WLAN)) {
        LOG("insmod %s fail\n", LOAD_WLAN);
        return -1;
    }
    if (!wlan_is_loaded()) {
        LOG("insmod failed\n");
        return -1;
    }
    LOG("insmod wlan sucess\n");
    LOG("wlan enter ftm=5 mode sucess\n");
    return 0;
}

// Loads WLAN in test mode unless it is there, switches Wi-Fi on if asked for, and checks the mode. 0 or -1;
// what was done stays done.
static int insmod_wlan(int mode)
{
    bool loads = !wlan_is_loaded();
    if (!loads) {
        LOG("the wlan is already insmod in closewlan operation!!\n");
    } else if (!run_line_and_wait(LOAD_WLAN)) {
        LOG("insmod %s fail\n", LOAD_WLAN);
        return -1;
    }
    usleep(MODULE_SETTLES);

    if (mode == OPEN_WITH_WIFI) {
        if (!run_command_and_wait(WIFI_ON)) {
            LOG("insmod %s failed\n", WIFI_ON);
            return -1;
        }
    } else if (mode == OPEN_TEST_MODE) {
        if (loads && !wlan_is_loaded()) {
            LOG("insmod wlan failed\n");
            return -1;
        }
    } else {
        LOG("command is not exsit!!\n");
        return -1;
    }

    descriptor node(open(WLAN_MODE, O_RDONLY | O_CLOEXEC));
    if (!node) {
        LOG(" open(\"%s\") failed\n", WLAN_MODE);
        return -1;
    }
    char value[256 + 1] = {};
    if (read(node.fd, value, sizeof value - 1) == 0) {
        LOG("read %s length: %s\n", WLAN_MODE, value);
        return -1;
    }
    if (strncmp(value, TEST_MODE, strlen(TEST_MODE)) != 0) {
        LOG("read con_mode: %s.\n", value);
        return -1;
    }
    return 0;
}

void *diag_cmd_close_wlan(const void *request, uint8_t *response)
{
    if (rmmod(packet_selector(request)) != 0)
        return FAIL(response, "rmmod wlan fail.\n");
    return DONE(response, "wlan driver rmmod successfully.\n");
}

void *diag_cmd_open_wlan(const void *request, uint8_t *response)
{
    int result = insmod_wlan(static_cast<int8_t>(packet_selector(request)));
    LOG("ret:%d\n", result);
    if (result < 0)
        return FAIL(response, "insmod wlan&wlan0 fail.\n");
    return DONE(response, "wlan driver insmod successfully.\n");
}

static void *switch_nfc(const char *handler, uint8_t *response, const nfc_switch &to)
{
    const bool sent = diag_cmd_handle_system(to.line);
    diag_log(handler, "%s\n", sent ? to.done : to.failed);
    return sent ? answer_ok(response) : answer_error(response);
}

void *diag_cmd_close_nfc(const void *, uint8_t *response) { return switch_nfc(__func__, response, NFC_OFF); }

void *diag_cmd_open_nfc(const void *, uint8_t *response) { return switch_nfc(__func__, response, NFC_ON); }

void *diag_cmd_chk_nfc_cplc(const void *request, uint8_t *response)
{
    uint8_t check = packet_selector(request);
    int32_t status = -1;
    if (check == CPLC_NORMAL)
        status = hwdec_nfc_cplc_check();
    else if (check == CPLC_FFBM)
        status = hwdec_nfc_cplc_ffbm_check();
    if (status != 0)
        return FAIL(response, "Nfc cplc check failed\n");
    return DONE(response, "Nfc cplc check success\n");
}

void *diag_cmd_chk_nfc_deid(const void *, uint8_t *response)
{
    if (hwdec_nfc_deid_check() != 0)
        return FAIL(response, "Nfc deid check failed\n");
    return DONE(response, "Nfc deid check success\n");
}

void *diag_cmd_stop_wireless_test(const void *, uint8_t *response)
{
    bool stopping = false;
    // Left open: the tool may take longer to end than the station is willing to wait.
    if (FILE *tool = run_line(STOP_LOG_TOOL).release()) {
        char line[LOG_TOOL_LINE];
        while (!stopping && fgets(line, sizeof line, tool)) {
            LOG("wireless test return: %s\n", line);
            stopping = strstr(line, LOG_TOOL_STOPS) != nullptr;
        }
    }
    if (!stopping)
        return FAIL(response, "wireless test stop fail\n");
    return DONE(response, "wireless test stop success\n");
}

void *diag_cmd_check_sim_insert(const void *, uint8_t *response)
{
    char state[PROPERTY_SIZE] = {};
    int length = property_get(SIM_STATE, state, nullptr);
    if (length < 1)
        return FAIL(response, "property_get error! len=%d, simstate_prop=%s\n", length, state);
    if (length > SIM_STATE_LIMIT)
        LOG("property len abnormal len=%d\n", length);
    LOG("sim insert status:%s\n", state);
    answer_bytes(response, state, static_cast<size_t>(length));
    return answer_length(response, static_cast<size_t>(length > SIM_STATE_LIMIT ? SIM_STATE_LIMIT : length));
}
