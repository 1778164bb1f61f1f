// Addresses, versions and chip identities, memory and flash, the solid-state disk.
#include "station/catalogue/catalogue.h"

namespace station
{

static constexpr char BASE255[] =
    "two bytes, the size in GiB modulo 255 and divided by 255 (not 256). The length ends at the first "
    "zero byte: 128 GiB is 80 with length 1, 256 GiB is 01 01 with length 2";

static Command property(uint16_t code, const char *name, const char *handler, const char *does,
                        const char *value)
{
    return Command(code, name, handler)
        .does(does)
        .error("the property could not be read")
        .empty(true, "the property is not set")
        .value("the value", value)
        .leaves("Nothing.")
        .repeatable();
}

std::vector<Command> identity_storage_commands()
{
    return {
        Command(0x001E, "set-wlan-mac", "diag_cmd_mac_addr_backup")
            .does("Stores the WLAN address in the driver's file on the persist partition and answers what "
                  "was stored. The "
                  "service does not check its form; this client does.")
            .takes({"MAC", "12 hexadecimal digits; ':' and '-' between them are left out"})
            .encoded(wlan_mac())
            .field("5-6", "u16", "not looked at; the text runs to its zero byte")
            .field("7..", "text",
                   "the address, 12 hexadecimal digits, and a terminating zero byte; 238 characters are kept")
            .error("the file cannot be written or read back")
            .empty(true, "an empty address was stored")
            .value("the address", "as read back from the file")
            .leaves(
                "\"/mnt/vendor/persist/wlan_mac.bin\" is written anew; after \"ERROR\" it may be incomplete.")
            .repeatable(),
        Command(0x0028, "set-bt-address", "diag_cmd_write_bt_mac_addr")
            .does("Sets the Bluetooth address property and has the platform's tool write its address file "
                  "from it.")
            .takes({"ADDRESS", "12 hexadecimal digits; ':' and '-' between them are left out"})
            .encoded(bluetooth_mac())
            .field("5-6", "u16", "not looked at")
            .field("7-18", "text",
                   "12 hexadecimal digits, the most significant first; they are not checked. Always twelve "
                   "characters are taken; a terminating zero byte is not needed")
            .ok("all three tools were started; read the address back with get-bt-address")
            .error("one of them could not be started")
            .leaves("The old address file is removed first and stays gone after \"ERROR\".")
            .repeatable()
            .lasts("tens of milliseconds"),
        Command(0x0029, "get-bt-address", "diag_cmd_check_bt_mac_addr")
            .does("Reads the Bluetooth address from its file.")
            .error("the file cannot be opened or read")
            .value("the address",
                   "12 upper-case hexadecimal digits, the most significant first; bytes that the file lacks "
                   "are 00",
                   bluetooth_address)
            .leaves("Nothing.")
            .repeatable(),
        property(0x0100, "ap-version", "diag_cmd_check_ap_version",
                 "Reads the software's build id, the property \"ro.build.id\".", "as the property holds it"),
        property(0x0101, "ap-version-ext", "diag_cmd_check_ap_version_ext",
                 "Reads the boot image's fingerprint, the property \"ro.bootimage.build.fingerprint\".",
                 "as the property holds it"),
        Command(0x010B, "debug-policy", "diag_cmd_check_ed_res")
            .does("Checks that the debug policy, the property \"ro.boot.dp\", is exactly \"0xB\".")
            .ok("it is")
            .error("it is anything else")
            .leaves("Nothing.")
            .repeatable(),
        property(0x0116, "cpu-serial", "diag_cmd_get_cpu_sn",
                 "Reads the chip's serial number, the property \"ro.boot.cpuid\".",
                 "the property without its first two characters (\"0x\")"),
        Command(0x0117, "set-cpu-frequency", "diag_cmd_set_cpu_running_freq")
            .does("Writes a frequency ceiling for both clusters of the processor. The number does not follow "
                  "the request: "
                  "whatever is sent, the ceiling is a number of the service's own, so this tests that the "
                  "nodes take one.")
            .field("7..", "-", "a frequency field that is not looked at")
            .ok("both nodes were written")
            .error("a node cannot be opened")
            .leaves("The ceilings of cpu0 and cpu2; when cpu2 fails, that of cpu0 is already written.")
            .repeatable(),
        Command(0x013F, "usb-serial", "diag_cmd_check_adb_sn")
            .does("Reads the serial number that the phone shows on USB.")
            .error("the node cannot be read")
            .empty(true, "the node is empty")
            .value("the serial number", "the node's text; its closing line feed is not counted")
            .leaves("Nothing.")
            .repeatable(),
        property(0x0141, "board-id", "diag_cmd_read_board_id",
                 "Reads the board's revision, the property \"ro.boot.hwversion\".",
                 "without the first two characters when \"0x\" or \"0X\" stands anywhere in it"),
        property(
            0x0142, "cpu-id", "diag_cmd_get_cpu_id",
            "Reads the chip's serial number, the property \"ro.boot.cpuid\"; the same text as cpu-serial.",
            "the property without its first two characters (\"0x\"); empty when it is shorter"),
        Command(0x0143, "cpu-feature-id", "diag_cmd_get_cpu_info")
            .does("Reads the chip's feature id from \"/proc/cpuinfo\".")
            .error("the tool could not be started, or its output names no feature id")
            .value("the id",
                   "what follows \"jtag_feature_id : 0x\", with the line feed behind it: this one is counted")
            .leaves("Nothing.")
            .repeatable()
            .lasts("some 10 ms"),
        Command(0x0A00, "ram-size", "diag_cmd_check_ddr_size")
            .does("Tells the nominal size of the memory, the kernel's total rounded up to the next of 2, 3, "
                  "4, 6, 8, 10, 12, "
                  "14 and 16 GiB.")
            .error("the tool could not be started")
            .empty(false, "the total lies in no class (1 GiB + 1 MiB at least, below 16 GiB + 1 MiB)")
            .value("the size", "one byte, GiB", gib_byte)
            .leaves("Nothing.")
            .repeatable()
            .lasts("some 10 ms"),
        Command(0x0B00, "flash-size", "diag_cmd_check_flash_size")
            .does(
                "Tells the nominal size of the main storage. Its units sda to sdf are summed up in the order "
                "of the list, and the sum is rounded up to the next of 16, 32, 64, 128, 256, 512 and 1024 "
                "GiB. The list ends with sdf: only a phone that has no sdf is asked through a tool; one that "
                "lacks another unit is told too small. A sum that grows beyond the classes keeps the last "
                "one it had.")
            .error("neither way tells a size")
            .empty(false, "the sum was in no class at any unit")
            .value("the size", BASE255, gib_base255)
            .leaves("Nothing.")
            .repeatable()
            .lasts("some 10 ms"),
        Command(0x0B01, "flash-firmware", "diag_cmd_get_flash_fw_ver")
            .does("Reads the main storage's firmware revision.")
            .error("the kernel's command line, the vendor in it or a node cannot be read")
            .value("the revision",
                   "UFS: the revision; eMMC: card identification, vendor and prv joined by ':'")
            .leaves("Nothing.")
            .repeatable()
            .lasts("some 10 ms"),
        Command(0x0B0A, "misc-content", "diag_cmd_check_misc_content")
            .does("Reads the text at the head of the misc partition: the boot mode that is pending.")
            .error("the partition cannot be read")
            .empty(true, "it begins with a zero byte: no mode is pending")
            .value("the text", "up to the first zero byte, at most 256 bytes")
            .leaves("Nothing.")
            .repeatable(),
        Command(0x2100, "ssd-size", "diag_cmd_check_ssd_size")
            .does("Tells the nominal size of the solid-state disk, rounded up to the next of 16, 32, 64, "
                  "128, 256, 512 and "
                  "1024 GiB.")
            .error("there is no disk, or its size lies in no class")
            .value("the size", BASE255, gib_base255)
            .leaves("Nothing.")
            .repeatable()
            .lasts("some 10 ms"),
        Command(0x2101, "ssd-present", "diag_cmd_check_ssd_present")
            .does("Checks that the solid-state disk is there and is the expected one, by its vendor and "
                  "device ids.")
            .ok("it is")
            .error("it is not")
            .leaves("A disk once found counts as found until the service is started again.")
            .repeatable()
            .lasts("some 10 ms"),
        Command(0x2102, "ssd-firmware", "diag_cmd_get_ssd_fw_ver")
            .does("Reads the solid-state disk's firmware revision.")
            .error("it cannot be read")
            .empty(true, "the node's line has one character alone, such as its line feed")
            .value("the revision",
                   "the node's line without its last character: of a node without a line feed "
                   "the revision's own last character is missing")
            .leaves("Nothing.")
            .repeatable()
            .lasts("some 10 ms"),
        Command(0x2103, "ssd-encryption", "diag_cmd_get_ssd_encrypt")
            .does("Tells whether the solid-state disk's own encryption is on.")
            .good("AES:en", "it is on")
            .good("AES:dis", "it is off")
            .error("the disk's tool could not be started or tells neither")
            .leaves("Nothing.")
            .repeatable()
            .lasts("some 10 ms"),
    };
}

} // namespace station
