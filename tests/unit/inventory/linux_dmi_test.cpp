// Reading dmidecode output and writing the firmware, board and virtualisation lines.
#include "inventory/linux_dmi.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "test_support.h"

namespace {

using test_support::CapturedMainLog;

DmiRecord parseText(const std::string& text) {
    DmiRecord record;
    resetDmiRecord(record);
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) parseDmiLine(record, (line + "\n").c_str());
    return record;
}

const char* const kVmwareGuest =
    "# dmidecode 3.2\n"
    "Getting SMBIOS data from sysfs.\n"
    "SMBIOS 2.7 present.\n"
    "\n"
    "Handle 0x0000, DMI type 0, 24 bytes\n"
    "BIOS Information\n"
    "\tVendor: Phoenix Technologies LTD\n"
    "\tVersion: 6.00\n"
    "\tRelease Date: 11/12/2020\n"
    "\tAddress: 0xEA490\n"
    "\tRuntime Size: 88944 bytes\n"
    "\tROM Size: 64 kB\n"
    "\tCharacteristics:\n"
    "\t\tISA is supported\n"
    "\t\tPCI is supported\n"
    "\tBIOS Revision: 4.6\n"
    "\tFirmware Revision: 0.0\n"
    "\n"
    "Handle 0x0001, DMI type 1, 27 bytes\n"
    "System Information\n"
    "\tManufacturer: VMware, Inc.\n"
    "\tProduct Name: VMware Virtual Platform\n"
    "\tVersion: None\n"
    "\tSerial Number: VMware-42 1d 6c 3f 8a 0e 9b 55-71 2c 0d 4e 3a 61 88 f2\n"
    "\tUUID: 3f6c1d42-0e8a-559b-712c-0d4e3a6188f2\n"
    "\tWake-up Type: Power Switch\n"
    "\tSKU Number: Not Specified\n"
    "\tFamily: Not Specified\n"
    "\n"
    "Handle 0x0002, DMI type 2, 15 bytes\n"
    "Base Board Information\n"
    "\tManufacturer: Intel Corporation\n"
    "\tProduct Name: 440BX Desktop Reference Platform\n"
    "\tVersion: None\n"
    "\tSerial Number: None\n"
    "\n";

TEST(ParseDmiLine, VmwareGuestFillsAllThreeTables) {
    DmiRecord r = parseText(kVmwareGuest);
    EXPECT_STREQ("Phoenix Technologies LTD", r.biosVendor);
    EXPECT_STREQ("6.00", r.biosVersion);
    EXPECT_STREQ("11/12/2020", r.biosReleaseDate);
    EXPECT_FALSE(r.uefiSupported);
    EXPECT_STREQ("VMware, Inc.", r.systemManufacturer);
    EXPECT_STREQ("VMware Virtual Platform", r.systemProductName);
    EXPECT_STREQ("None", r.systemVersion);
    EXPECT_STREQ("3f6c1d42-0e8a-559b-712c-0d4e3a6188f2", r.systemUuid);
    EXPECT_STREQ("Intel Corporation", r.boardManufacturer);
    EXPECT_STREQ("440BX Desktop Reference Platform", r.boardProductName);
    EXPECT_STREQ("None", r.boardVersion);
    EXPECT_EQ(2, r.currentType);
}

TEST(ParseDmiLine, LinesBeforeTheFirstHeaderAreIgnored) {
    DmiRecord r = parseText(
        "Vendor: early\nManufacturer: early\n"
        "Handle 0x0001, DMI type 1, 27 bytes\n\tProduct Name: KVM\n");
    EXPECT_STREQ("", r.biosVendor);
    EXPECT_STREQ("", r.systemManufacturer);
    EXPECT_STREQ("KVM", r.systemProductName);
}

TEST(ParseDmiLine, LaterMatchOverwritesAndUefiFlagIsSet) {
    DmiRecord r = parseText(
        "Handle 0x0000, DMI type 0, 26 bytes\n\tVendor: First\n\tVendor: Second\n"
        "\t\tUEFI is supported\n");
    EXPECT_STREQ("Second", r.biosVendor);
    EXPECT_TRUE(r.uefiSupported);
}

TEST(ParseDmiLine, UefiLineOutsideTheBiosTableIsNotCounted) {
    DmiRecord r = parseText("Handle 0x0001, DMI type 1, 27 bytes\n\t\tUEFI is supported\n");
    EXPECT_FALSE(r.uefiSupported);
}

TEST(ParseDmiLine, OverlongValueIsCutAt127Characters) {
    std::string text = "Handle 0x0001, DMI type 1, 27 bytes\n\tProduct Name: " +
                       std::string(300, 'p') + "\n";
    DmiRecord r = parseText(text);
    EXPECT_EQ(std::string(127, 'p'), r.systemProductName);
}

TEST(IsVirtualised, ProductNamesAndManufacturers) {
    struct Case {
        const char* manufacturer;
        const char* product;
        bool want;
    };
    const Case cases[] = {
        {"VMware, Inc.", "VMware Virtual Platform", true},
        {"VMware, Inc.", "VMware7,1", true},
        {"innotek GmbH", "VirtualBox", true},
        {"Oracle Corporation", "VirtualBox 7", false},
        {"QEMU", "KVM", true},
        {"Bochs", "Bochs", true},
        {"Xen", "HVM domU", true},
        {"Microsoft Corporation", "Virtual Machine", true},
        {"Microsoft", "Virtual Machine", false},
        {"Dell Inc.", "PowerEdge R740", false},
        {"QEMU", "kvm", false},
        {"", "", false},
        {"VMware, Inc.", "vmware", false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.want, isVirtualised(c.manufacturer, c.product))
            << c.manufacturer << " / " << c.product;
    }
}

TEST(WriteDmiRecord, VmwareGuestLines) {
    CapturedMainLog log;
    writeDmiRecord(parseText(kVmwareGuest));
    EXPECT_EQ(
        "Provisioning:         Virtualised\n"
        "\n"
        "System:               VMware, Inc. VMware Virtual Platform, version None\n"
        "UUID:                 3f6c1d42-0e8a-559b-712c-0d4e3a6188f2\n"
        "Motherboard:          Intel Corporation 440BX Desktop Reference Platform, version None\n"
        "\n"
        "Firmware mode:        BIOS\n"
        "Firmware:             Phoenix Technologies LTD, 6.00, 11/12/2020\n"
        "\n",
        log.text());
}

TEST(WriteDmiRecord, NothingFoundPrintsEmptyFieldsAsPhysical) {
    CapturedMainLog log;
    DmiRecord r;
    resetDmiRecord(r);
    writeDmiRecord(r);
    EXPECT_EQ(
        "Provisioning:         Physical\n"
        "\n"
        "System:                , version \n"
        "UUID:                 \n"
        "Motherboard:           , version \n"
        "\n"
        "Firmware mode:        BIOS\n"
        "Firmware:             , , \n"
        "\n",
        log.text());
}

}  // namespace
