// Security state, content-protection and payment keys, phone binding.
#include "station/catalogue/catalogue.h"

namespace station
{

std::vector<Command> security_key_commands()
{
    return {
        Command(0xC800, "secure-boot", "diag_cmd_check_secure_boot")
            .does("Checks that secure boot is enabled.")
            .takes(Parameter("METHOD", "how to tell")
                       .byte(SELECTOR_OFFSET, {{"property", 1, "by the property \"ro.boot.secureboot\""},
                                               {"fuse", 0, "by the fuse register"}})
                       .optional("property"))
            .field("4", "u8", "0: read the fuse register; anything else: look at the property")
            .ok("it is enabled")
            .error("it is not, the property is not set, the register cannot be read, or its readout could "
                   "not be removed")
            .leaves("Nothing; the register's readout \"/data/secure_boot\" is removed, unless the removal "
                    "itself failed.")
            .repeatable()
            .lasts("milliseconds; the register some 10 ms"),
        Command(0xC801, "rpmb-key", "diag_cmd_set_rpmb_key_status")
            .does("Makes sure that the replay-protected memory has its key: asks, provisions it when it is "
                  "missing, asks "
                  "again.")
            .ok("the key is provisioned and right")
            .error(
                "it is not: the client told something else or could not be started, or provisioning failed")
            .leaves("A key once provisioned stays for ever.")
            .repeatable()
            .lasts("up to three runs of the secure world's client, seconds"),
        Command(0xC802, "lock-state", "diag_cmd_check_lock_state")
            .does("Reads the boot loader's lock state, the property \"ro.secureboot.lockstate\".")
            .error("the property could not be read")
            .empty(true, "the property is not set")
            .value("the state", "as the property holds it; the station judges it")
            .leaves("Nothing.")
            .repeatable(),
        Command(0xD200, "set-phone-binding", "diag_cmd_set_kavophonebind")
            .does("Writes the phone binding key to its partition.")
            .takes(Parameter("--file PATH", "a file's content, - for standard input").optional())
            .takes(Parameter("--hex HEX", "bytes in hexadecimal").optional())
            .takes(Parameter("--text TEXT", "a text").optional())
            .encoded(bytes_from_options())
            .field("5-6", "u16", "the key's length, at most 256")
            .field("7..", "bytes", "the key")
            .ok("written")
            .error("more than 256 bytes, or the partition cannot be opened or written")
            .leaves("The key stays in its partition; the service never erases it. Behind a shorter key the "
                    "tail of a longer one stays.")
            .repeatable(),
        Command(0xD201, "phone-binding", "diag_cmd_query_kavophonebind")
            .does("Reads the phone binding key back through the binding service.")
            .bad("open_kavophonebind_fail", "the tool could not be started")
            .bad("match_kavophonebind_fail", "the binding service tells no key")
            .empty(true, "the binding service tells an empty key")
            .value("the key", "its first 32 bytes")
            .leaves("Nothing.")
            .repeatable()
            .lasts("some 10 ms"),
        Command(0xD20A, "store-widevine-keybox", "diag_cmd_set_query_widevine")
            .does("Stores a Widevine keybox with the phone's tool `StoreKeybox` and reads the device id "
                  "back. When the tool refuses a keybox, that is not seen, and the id of an earlier one is "
                  "answered: compare the id with that of the keybox sent. On the virtual phone a keybox "
                  "has 128 bytes, of which the first 32 are the id.")
            .takes(Parameter("--file PATH", "the keybox, at most 768 bytes; - for standard input").optional())
            .takes(Parameter("--hex HEX", "the keybox in hexadecimal").optional())
            .encoded(bytes_from_options())
            .field("5-6", "u16", "the keybox's length, at most 768")
            .field("7..", "bytes", "the keybox")
            .bad("store_file_fail", "more than 768 bytes, or the keybox could not be put into a file")
            .bad("write_key_fail", "the keybox tool could not be started")
            .bad("delete_file_fail", "the file could not be removed")
            .bad("open_oemcrypro_fail", "the tool that tells the device id could not be started")
            .bad("match_device_id_fail", "it tells no device id")
            .error("general failure; not used at present")
            .value("the device id", "its first 32 bytes; not a sign that the tool took the keybox")
            .leaves("The keybox that the tool accepted, in the secure world. \"/data/keybox.bin\" is removed "
                    "once the tool has run, whatever came of that; after \"store_file_fail\" a part of it "
                    "may be there.")
            .lasts("as long as two tools run, seconds"),
        Command(0xD20B, "install-widevine", "diag_cmd_set_widevine_key")
            .does("Installs the Widevine keybox that lies on the phone as \"/data/widevine.xml\"; `station "
                  "push "
                  "KEYBOX.xml /data/widevine.xml` puts it there.")
            .takes({"ARGUMENT", "what the Widevine client gets behind the file, at most 256 bytes"})
            .encoded(text_of("ARGUMENT"))
            .field("5-6", "u16", "the argument's length: so many bytes are taken, at most 256")
            .field("7..", "text", "the argument; the whole command line is cut at 255 bytes")
            .ok("installed, and the file is removed")
            .bad("NOT_EXSIT", "the file is missing")
            .error("the client did not say PASS, or the file could not be removed")
            .leaves("After a failure of the client the file stays, for another try.")
            .lasts("as long as the client runs, seconds"),
        Command(0xD214, "set-hdcp-key", "diag_cmd_set_hdcp_key")
            .does("Stores the HDCP key material on the persist partition and runs the provisioning tool, "
                  "`hdcpprov`. Send query-hdcp-key afterwards: it cleans up. A file that is there already is "
                  "not truncated: after a failure remove both, or the tail of a longer key stays behind the "
                  "new one. On the virtual phone the tool wants a CEK of exactly 16 bytes and a PM of one or "
                  "more whole blocks of 16.")
            .takes({"--cek PATH", "the file of the CEK, at most 768 bytes"})
            .takes({"--pm PATH", "the file of the PM, at most 768 bytes"})
            .encoded(hdcp_keys())
            .field("5-6", "u16", "length of the CEK alone, at most 768")
            .field("7-8", "u16", "length of the PM, at most 768")
            .field("9..", "bytes", "the CEK, and behind its last byte the PM")
            .ok("stored, and the tool reports success")
            .bad("store_CEK_fail", "the CEK has more than 768 bytes or could not be stored")
            .bad("store_PM_fail", "the PM has more than 768 bytes or could not be stored")
            .bad("exec_hdcpprov_fail", "the tool does not report success; `shell-output hdcpprov` runs it "
                                       "again on the files that stay and tells why")
            .error("something could not be stored, nor removed again")
            .leaves("\"CEK.txt\" and \"PM.out\" in \"/mnt/vendor/persist\" after \"OK\" and "
                    "\"exec_hdcpprov_fail\"; after \"store_CEK_fail\" no CEK, after \"store_PM_fail\" no CEK "
                    "but what was written of the PM. After a failure query-hdcp-key does not clean up: send "
                    "remove-file for either path.")
            .lasts("as long as the tool runs, seconds"),
        Command(0xD215, "query-hdcp-key", "diag_cmd_query_hdcp_key")
            .does("Runs the HDCP provisioning tool once more, checks that it has left its data and removes "
                  "the key files. Asked again, on the virtual phone the tool checks the keys provisioned "
                  "before and the answer is \"OK\" again.")
            .ok("provisioned, the key files are removed")
            .error(
                "the tool does not report success, its data is not there, or the files could not be removed")
            .leaves("The provisioned data in \"/mnt/vendor/persist/data/dxhdcp2\". No key files after "
                    "\"OK\"; after \"ERROR\" they stay: send remove-file for either path.")
            .lasts("as long as the tool runs, seconds"),
        Command(0xD21E, "wechat-key", "diag_cmd_get_wechat_key")
            .does("Reads out the WeChat payment key: the whole output of its tool.")
            .error("the tool could not be started")
            .empty(true, "the tool printed nothing")
            .value(
                "the key",
                "the tool's output with its line feeds, at most 768 bytes; of a longer one 767 are counted")
            .leaves("Nothing.")
            .response(775)
            .repeatable()
            .lasts("as long as the tool runs"),
        Command(0xD228, "alipay-key", "diag_cmd_get_alipay_key")
            .does("Checks that the Alipay payment key is there.")
            .ok("the tool says PASS")
            .error("it does not, or could not be started")
            .leaves("Nothing.")
            .repeatable()
            .lasts("as long as the tool runs"),
        Command(0xD232, "cplc", "diag_cmd_get_cplc_key")
            .does("Reads the secure element's life cycle data and the identifier stored beside it, from "
                  "\"/data/cplc_info\".")
            .error("the file cannot be opened")
            .value("both",
                   "\"cplc:\" and 84 hexadecimal digits, \"mac:\" and 16; 82 or 14 when the part's last byte "
                   "is a line feed; "
                   "bytes that the file lacks are 00",
                   cplc_and_mac)
            .leaves("Nothing.")
            .repeatable(),
        Command(0xD23C, "install-keymaster", "diag_cmd_set_keymaster_provison")
            .does("Installs the attestation keybox that lies on the phone as \"/data/keybox.xml\"; `station "
                  "push "
                  "KEYBOX.xml /data/keybox.xml` puts it there.")
            .takes({"ARGUMENT",
                    "what the installer gets behind the file, such as the device's id; at most 256 bytes"})
            .encoded(text_of("ARGUMENT"))
            .field("5-6", "u16", "the argument's length: so many bytes are taken, at most 256")
            .field("7..", "text", "the argument; the whole command line is cut at 255 bytes")
            .ok("installed, and the file is removed")
            .bad("NOT_EXSIT", "the file is missing")
            .error("the installer could not be started or failed or told nothing, or the file could not be "
                   "removed")
            .leaves("After a failure of the installer the file stays, for another try.")
            .lasts("as long as the installer runs, seconds"),
    };
}

} // namespace station
