#include "tools/ports.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>

#include <fmt/format.h>

#include "tools/errors.h"
#include "tools/json.h"
#include "tools/manner.h"
#include "tools/output.h"

namespace fs = std::filesystem;

namespace {

// The first line of a file, "" if it cannot be read.
std::string lineOf(const fs::path &file)
{
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line);
    return line;
}

// Built-in ports are listed by number, whether or not there is a chip; their type is 0 if not.
bool hasChip(const fs::path &entry)
{
    return lineOf(entry / "type") != "0";
}

std::string stableLink(const fs::path &root, const std::string &name)
{
    std::error_code error;
    for (const fs::directory_entry &link :
         fs::directory_iterator(root / "dev/serial/by-id", error)) {
        if (fs::read_symlink(link.path(), error).filename() == name) {
            return "/dev/serial/by-id/" + link.path().filename().string();
        }
    }
    return {};
}

// The USB device that the port belongs to lies some folders above it.
void askUsb(const fs::path &device, SerialPort &port)
{
    for (fs::path folder = device; folder.has_relative_path(); folder = folder.parent_path()) {
        std::error_code error;
        if (fs::exists(folder / "idVendor", error)) {
            port.usbId = lineOf(folder / "idVendor") + ":" + lineOf(folder / "idProduct");
            port.manufacturer = lineOf(folder / "manufacturer");
            port.product = lineOf(folder / "product");
            port.serialNumber = lineOf(folder / "serial");
            return;
        }
    }
}

std::string orDash(const std::string &text)
{
    return text.empty() ? "-" : text;
}

} // namespace

std::vector<SerialPort> serialPorts(const std::string &root)
{
    std::vector<SerialPort> ports;
    const fs::path base = root.empty() ? fs::path("/") : fs::path(root);
    std::error_code error;
    for (const fs::directory_entry &entry : fs::directory_iterator(base / "sys/class/tty", error)) {
        const fs::path device = fs::canonical(entry.path() / "device", error);
        if (error || !hasChip(entry.path())) {
            continue;
        }
        const std::string name = entry.path().filename().string();
        SerialPort port;
        port.device = "/dev/" + name;
        port.driver = fs::read_symlink(device / "driver", error).filename().string();
        askUsb(device, port);
        port.link = stableLink(base, name);
        ports.push_back(port);
    }
    std::sort(ports.begin(), ports.end(), [](const SerialPort &left, const SerialPort &right) {
        return left.device < right.device;
    });
    return ports;
}

int runPorts(const std::string &root)
{
    const std::vector<SerialPort> ports = serialPorts(root);
    if (manner().json) {
        Json list = Json::array();
        for (const SerialPort &port : ports) {
            const auto orNull = [](const std::string &text) {
                return text.empty() ? Json() : Json(text);
            };
            list.push_back({{"device", port.device},
                            {"driver", orNull(port.driver)},
                            {"usb_id", orNull(port.usbId)},
                            {"manufacturer", orNull(port.manufacturer)},
                            {"product", orNull(port.product)},
                            {"serial_number", orNull(port.serialNumber)},
                            {"link", orNull(port.link)}});
        }
        printJson({{"ports", list}});
        return kDone;
    }
    for (const SerialPort &port : ports) {
        const std::string name = port.manufacturer + (port.manufacturer.empty() ? "" : " ") +
                                 port.product +
                                 (port.serialNumber.empty() ? "" : ", " + port.serialNumber);
        fmt::print("{:<14}  {:<12}  {:<9}  {}\n", port.device, orDash(port.driver),
                   orDash(port.usbId), orDash(name));
        if (!port.link.empty()) {
            fmt::print("                {}\n", port.link);
        }
    }
    if (ports.empty() && !manner().quiet) {
        fmt::print(stderr, "veskctl: this computer has no serial devices\n");
    }
    flushOutput();
    return kDone;
}
