// The serial devices that the system lists.

#include "tools/ports.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

// A folder with the files of the kernel and of udev.
class Ports : public testing::Test {
protected:
    Ports()
    {
        std::string pattern = fs::temp_directory_path() / "portsXXXXXX";
        root = mkdtemp(pattern.data());
        fs::create_directories(root / "sys/class/tty");
    }
    ~Ports() override
    {
        fs::remove_all(root);
    }
    Ports(const Ports &) = delete;
    Ports &operator=(const Ports &) = delete;

    void write(const fs::path &file, const std::string &text) const
    {
        fs::create_directories((root / file).parent_path());
        std::ofstream(root / file) << text << "\n";
    }

    void link(const fs::path &from, const fs::path &to) const
    {
        fs::create_directories((root / from).parent_path());
        fs::create_symlink(root / to, root / from);
    }

    fs::path root;
};

TEST_F(Ports, HasAnAdapterWithWhatItSaysOfItself)
{
    const fs::path usb = "sys/devices/usb1/1-2";
    write(usb / "idVendor", "0403");
    write(usb / "idProduct", "6001");
    write(usb / "manufacturer", "Maker");
    write(usb / "product", "Cable");
    write(usb / "serial", "A7");
    fs::create_directories(root / usb / "1-2:1.0/ttyUSB0");
    fs::create_directories(root / "sys/bus/usb-serial/drivers/some_sio");
    link(usb / "1-2:1.0/ttyUSB0/driver", "sys/bus/usb-serial/drivers/some_sio");
    link("sys/class/tty/ttyUSB0/device", usb / "1-2:1.0/ttyUSB0");
    link("dev/serial/by-id/usb-Maker_Cable_A7-if00", "dev/ttyUSB0");
    const auto ports = serialPorts(root);
    ASSERT_EQ(ports.size(), 1U);
    EXPECT_EQ(ports[0].device, "/dev/ttyUSB0");
    EXPECT_EQ(ports[0].driver, "some_sio");
    EXPECT_EQ(ports[0].usbId, "0403:6001");
    EXPECT_EQ(ports[0].manufacturer, "Maker");
    EXPECT_EQ(ports[0].product, "Cable");
    EXPECT_EQ(ports[0].serialNumber, "A7");
    EXPECT_EQ(ports[0].link, "/dev/serial/by-id/usb-Maker_Cable_A7-if00");
}

TEST_F(Ports, LeavesOutNumbersWithoutAChipAndTerminalsWithoutADevice)
{
    for (const char *const name : {"ttyS1", "ttyS0"}) {
        fs::create_directories(root / "sys/devices/platform" / name);
        link(fs::path("sys/class/tty") / name / "device", fs::path("sys/devices/platform") / name);
    }
    write("sys/class/tty/ttyS0/type", "4");
    write("sys/class/tty/ttyS1/type", "0");
    fs::create_directories(root / "sys/class/tty/tty1");
    const auto ports = serialPorts(root);
    ASSERT_EQ(ports.size(), 1U);
    EXPECT_EQ(ports[0].device, "/dev/ttyS0");
    EXPECT_EQ(ports[0].usbId, "");
}

TEST_F(Ports, IsEmptyWhereTheSystemListsNothing)
{
    EXPECT_TRUE(serialPorts(root / "nowhere").empty());
}

} // namespace
