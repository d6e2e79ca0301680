// Firmware, board and virtualisation from the SMBIOS tables, as dmidecode prints them.
#pragma once

constexpr int DMI_TEXT_SIZE = 128;

struct DmiRecord {
    // Type 0, BIOS.
    char biosVendor[DMI_TEXT_SIZE];
    char biosVersion[DMI_TEXT_SIZE];
    char biosReleaseDate[DMI_TEXT_SIZE];
    bool uefiSupported;
    // Type 1, system.
    char systemManufacturer[DMI_TEXT_SIZE];
    char systemProductName[DMI_TEXT_SIZE];
    char systemVersion[DMI_TEXT_SIZE];
    char systemUuid[DMI_TEXT_SIZE];
    // Type 2, base board.
    char boardManufacturer[DMI_TEXT_SIZE];
    char boardProductName[DMI_TEXT_SIZE];
    char boardVersion[DMI_TEXT_SIZE];
    // The table the lines being read belong to; -1 before the first "DMI type" header.
    int currentType;
};

/// Empties every field and sets the current type to -1.
void resetDmiRecord(DmiRecord& record);

/// Takes one line of "dmidecode -t 0,1,2" output into the record: a "DMI type" header sets
/// the current table, a known key of that table overwrites its field.
void parseDmiLine(DmiRecord& record, const char* line);

/// True when the system product name marks a virtual machine.
bool isVirtualised(const char* manufacturer, const char* productName);

/// Writes the Provisioning, System, UUID, Motherboard, Firmware mode and Firmware lines.
void writeDmiRecord(const DmiRecord& record);

/// Runs dmidecode and writes its block to the main log; when /usr/sbin/dmidecode is missing,
/// logs a warning with the install hint and writes "n/a" lines instead.
void getDmiInfo();
