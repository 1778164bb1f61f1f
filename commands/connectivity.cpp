#include "commands/connectivity.h"

#include <cutils.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "core/files.h"
#include "core/log.h"
#include "core/packet.h"
#include "core/shell.h"
#include "hwdec/checks.h"

static constexpr char BT_DAEMON[] = "ftmdaemon";
static constexpr char START_BT_DAEMON[] = "ftmdaemon -n &";
static constexpr char WLAN_SERVICE[] = "ptt_socket_app";
static constexpr char START_WLAN_SERVICE[] = "ptt_socket_app -v -d -f &";
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

static constexpr char NFC_ON[] = "svc nfc enable";
static constexpr char NFC_OFF[] = "svc nfc disable";

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

static bool comes_up(const char *name)
{
    usleep(DAEMON_STARTS);
    return running(name) > 0;
}

void *diag_cmd_close_bt(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x1E00);
    if (!response)
        return nullptr;
    if (running(BT_DAEMON) > 0) {
        LOG("Kill FTMDAEMON count:%d\n", diag_kill_exist_process(BT_DAEMON));
        if (running(BT_DAEMON) > 0) {
            LOG("FTMDAEMON not be killed.\n");
            return answer_error(response);
        }
        LOG("FTMDAEMON be killed.\n");
    }
    return answer_ok(response);
}

void *diag_cmd_open_bt(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x1E01);
    if (!response)
        return nullptr;
    if (running(BT_DAEMON) > 0) {
        LOG("ftmdaemon already open!\n");
        return answer_text(response, RUNNING_ALREADY);
    }
    if (diag_cmd_system_send(START_BT_DAEMON) != 0 || !comes_up(BT_DAEMON)) {
        LOG("FTMDAEMON open failed.\n");
        return answer_error(response);
    }
    LOG("BT FTMDAEMON open successful.\n");
    return answer_ok(response);
}

static bool wlan_is_loaded() { return diag_cmd_compare_msg(LIST_MODULES, WLAN_MODULE) == 0; }

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
        if (!run_command(WIFI_ON)) { // closed at once, unread: that waits for it
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

void *diag_cmd_close_wlan(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x2000);
    if (!response)
        return nullptr;
    if (rmmod(packet_selector(request)) != 0) {
        LOG("rmmod wlan fail.\n");
        return answer_error(response);
    }
    LOG("wlan driver rmmod successfully.\n");
    return answer_ok(response);
}

void *diag_cmd_open_wlan(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response =
        response_new(__func__, request, 0x2001, TEXT_RESPONSE, "diagpkt_subsys_alloc failed.\n");
    if (!response)
        return nullptr;
    int result = insmod_wlan(static_cast<int8_t>(packet_selector(request)));
    LOG("ret:%d\n", result);
    if (result < 0) {
        LOG("insmod wlan&wlan0 fail.\n");
        return answer_error(response);
    }
    LOG("wlan driver insmod successfully.\n");
    return answer_ok(response);
}

void *diag_cmd_open_wlan_service(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x2003);
    if (!response)
        return nullptr;
    if (running(WLAN_SERVICE) > 0) {
        LOG("ptt_socket_app already open\n");
        return answer_text(response, RUNNING_ALREADY);
    }
    if (diag_cmd_handle_system(START_WLAN_SERVICE) != 0 || !comes_up(WLAN_SERVICE)) {
        LOG("Open wlan service failed.\n");
        return answer_error(response);
    }
    LOG("Open wlan service successfully.\n");
    return answer_ok(response);
}

void *diag_cmd_close_wlan_service(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x2004);
    if (!response)
        return nullptr;
    if (running(WLAN_SERVICE) > 0) {
        LOG("Kill WLAN_SERVICE succ! ret:%d\n", diag_kill_exist_process(WLAN_SERVICE));
        if (int left = running(WLAN_SERVICE)) {
            LOG("WLAN_SERVICE not be killed,count:%d\n", left);
            return answer_error(response);
        }
        LOG("WLAN_SERVICE be killed.\n");
    }
    return answer_ok(response);
}

void *diag_cmd_close_nfc(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x2400);
    if (!response)
        return nullptr;
    if (diag_cmd_handle_system(NFC_OFF) != 0) {
        LOG("Nfc close failed\n");
        return answer_error(response);
    }
    LOG("Run shell script successfully,nfc close\n");
    return answer_ok(response);
}

void *diag_cmd_open_nfc(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x2401);
    if (!response)
        return nullptr;
    if (diag_cmd_handle_system(NFC_ON) != 0) {
        LOG("Nfc open failed\n");
        return answer_error(response);
    }
    LOG("Run shell script successfully, nfc open\n");
    return answer_ok(response);
}

void *diag_cmd_chk_nfc_cplc(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x2402);
    if (!response)
        return nullptr;

    uint8_t check = packet_selector(request);
    int32_t status = -1;
    if (check == CPLC_NORMAL)
        status = hwdec_nfc_cplc_check();
    else if (check == CPLC_FFBM)
        status = hwdec_nfc_cplc_ffbm_check();
    if (status != 0) {
        LOG("Nfc cplc check failed\n");
        return answer_error(response);
    }
    LOG("Nfc cplc check success\n");
    return answer_ok(response);
}

void *diag_cmd_chk_nfc_deid(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x2403);
    if (!response)
        return nullptr;
    if (hwdec_nfc_deid_check() != 0) {
        LOG("Nfc deid check failed\n");
        return answer_error(response);
    }
    LOG("Nfc deid check success\n");
    return answer_ok(response);
}

void *diag_cmd_stop_wireless_test(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x2600, TEXT_RESPONSE, DIAG_ALLOC_FAILED);
    if (!response)
        return nullptr;

    bool stopping = false;
    // Left open: the tool may take longer to end than the station is willing to wait.
    if (FILE *tool = run_line(STOP_LOG_TOOL).release()) {
        char line[LOG_TOOL_LINE];
        while (!stopping && fgets(line, sizeof line, tool)) {
            LOG("wireless test return: %s\n", line);
            stopping = strstr(line, LOG_TOOL_STOPS) != nullptr;
        }
    }
    if (!stopping) {
        LOG("wireless test stop fail\n");
        return answer_error(response);
    }
    LOG("wireless test stop success\n");
    return answer_ok(response);
}

void *diag_cmd_check_sim_insert(void *request, uint16_t)
{
    LOG("Enter\n");
    uint8_t *response = response_new(__func__, request, 0x5000);
    if (!response)
        return nullptr;

    char state[LONG_CAPACITY] = {};
    int length = property_get(SIM_STATE, state, nullptr);
    if (length < 1) {
        LOG("property_get error! len=%d, simstate_prop=%s\n", length, state);
        return answer_error(response);
    }
    if (length > SIM_STATE_LIMIT)
        LOG("property len abnormal len=%d\n", length);
    LOG("sim insert status:%s\n", state);
    answer_bytes(response, state, static_cast<size_t>(length));
    return answer_length(response, static_cast<size_t>(length > SIM_STATE_LIMIT ? SIM_STATE_LIMIT : length));
}
