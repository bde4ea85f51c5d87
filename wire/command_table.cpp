#include "wire/command_table.h"

namespace wire {
namespace {

// Numbers of the service's commands.
const std::uint8_t kSource = 0;
const std::uint8_t kMedia = 3;
const std::uint8_t kBluetooth = 4;
const std::uint8_t kGps = 5;
const std::uint8_t kKey = 6;
const std::uint8_t kVersion = 7;
const std::uint8_t kIdentity = 10;
const std::uint8_t kChip = 12;
const std::uint8_t kUsbSd = 13;

const Choice kNames[] = {
    {"source", kSource},     {"media", kMedia}, {"bluetooth", kBluetooth},
    {"gps", kGps},           {"key", kKey},     {"version", kVersion},
    {"identity", kIdentity}, {"chip", kChip},   {"usb and sd", kUsbSd},
};

const Choice kSources[] = {
    {"radio", 1}, {"navi", 13}, {"bttel", 7}, {"btaudio", 28}, {"sd", 12},   {"usb", 6},
    {"disc", 2},  {"aux2", 4},  {"aux1", 9},  {"ipod", 18},    {nullptr, 0},
};
const Choice kNoYes[] = {{"no", 0}, {"yes", 1}, {nullptr, 0}};
const Choice kFailPass[] = {{"fail", 0}, {"pass", 1}, {nullptr, 0}};
const Choice kStoppedPlaying[] = {{"stopped", 0}, {"playing", 1}, {nullptr, 0}};

// Parameters.
const ParameterSpec kUuidText = {"TEXT", ParameterKind::kText, 1, 16, nullptr};
const ParameterSpec kSerialText = {"TEXT", ParameterKind::kText, 1, 20, nullptr};
const ParameterSpec kNameText = {"TEXT", ParameterKind::kText, 1, 125, nullptr};
const ParameterSpec kPairingCode = {"CODE", ParameterKind::kText, 1, 125, nullptr};
const ParameterSpec kPhoneNumber = {"NUMBER", ParameterKind::kText, 1, 34, nullptr};
const ParameterSpec kMacAddress = {"XX:XX:XX:XX:XX:XX", ParameterKind::kMac, 0, 0, nullptr};
const ParameterSpec kSourceName = {"NAME", ParameterKind::kChoice, 0, 0, kSources};
const ParameterSpec kFolder = {"FOLDER", ParameterKind::kNumber, 0, 65535, nullptr};
const ParameterSpec kTrack = {"TRACK", ParameterKind::kNumber, 0, 65535, nullptr};
const ParameterSpec kRegion = {"REGION", ParameterKind::kByte, 0, 6, nullptr};

// Replies.
const ReplySpec kSilent = {ReplyKind::kNone, nullptr, nullptr, 0, nullptr};
const ReplySpec kVersionText = {ReplyKind::kText, "version", nullptr, 0, nullptr};
const ReplySpec kIdentityText = {ReplyKind::kIdentity, "text", nullptr, 0, nullptr};
const ReplySpec kName = {ReplyKind::kText, "name", nullptr, 0, "error"};
const ReplySpec kMac = {ReplyKind::kMac, "mac", nullptr, 0, "00:00:00:00:00:00"};
const ReplySpec kVerdict = {ReplyKind::kVerdict, "verdict", kFailPass, 0, "fail"};
const ReplySpec kPosition = {ReplyKind::kNumberPair, nullptr, nullptr, 0, "0"};
const ReplySpec kState = {ReplyKind::kChoice, "state", kStoppedPlaying, 0, "stopped"};
const ReplySpec kDevice = {ReplyKind::kByte, "device", nullptr, 255, "0"};
const ReplySpec kRegionNumber = {ReplyKind::kByte, "region", nullptr, 6, "0"};
const ReplySpec kPresent = {ReplyKind::kChoice, "present", kNoYes, 0, "no"};
const ReplySpec kSynchronised = {ReplyKind::kChoice, "synchronised", kNoYes, 0, "no"};
const ReplySpec kSatelliteList = {ReplyKind::kSatellites, nullptr, nullptr, 0, nullptr};
const ReplySpec kPlace = {ReplyKind::kPosition, nullptr, nullptr, 0, nullptr};
const ReplySpec kSpeed = {ReplyKind::kSpeed, "speed", nullptr, 0, nullptr};
const ReplySpec kAngle = {ReplyKind::kAngle, "angle", nullptr, 0, nullptr};

}  // namespace

// A row each: numbers, selector, words, parameters, reply, help.
// clang-format off
const CommandSpec kCommands[] = {
    {kVersion, 1, kNoSelector, "version mpu", {}, kVersionText, "MPU software"},
    {kVersion, 2, kNoSelector, "version os", {}, kVersionText, "operating system"},
    {kVersion, 3, kNoSelector, "version navi", {}, kVersionText, "navigation engine"},
    {kVersion, 4, kNoSelector, "version bt", {}, kVersionText, "Bluetooth module"},
    {kVersion, 5, kNoSelector, "version map", {}, kVersionText, "map data"},
    {kVersion, 6, kNoSelector, "version model", {}, kVersionText, "MPU model"},
    {kVersion, 8, kNoSelector, "version zmmpu", {}, kVersionText, "MPU software, second record"},
    {kVersion, 9, kNoSelector, "version zmos", {}, kVersionText, "operating system, second record"},
    {kVersion, 27, kNoSelector, "version touch", {}, kVersionText, "touch panel firmware"},
    {kVersion, 29, kNoSelector, "version ifs", {}, kVersionText, "boot image"},

    {kIdentity, 11, kNoSelector, "uuid", {}, kIdentityText, "read the UUID"},
    {kIdentity, 10, kNoSelector, "uuid", {kUuidText}, kSilent, "burn in the UUID (up to 16 bytes)"},
    {kIdentity, 3, kNoSelector, "serial", {}, kIdentityText, "read the machine serial number"},
    {kIdentity, 2, kNoSelector, "serial", {kSerialText}, kSilent, "burn in the machine serial number (up to 20 bytes)"},

    {kBluetooth, 13, kNoSelector, "bt name", {}, kName, "read the local name"},
    {kBluetooth, 0, kNoSelector, "bt name", {kNameText}, kSilent, "set the local name"},
    {kBluetooth, 5, kNoSelector, "bt pair", {kPairingCode}, kSilent, "set the pairing code"},
    {kBluetooth, 7, kNoSelector, "bt mac", {}, kMac, "read the MAC address"},
    {kBluetooth, 14, kNoSelector, "bt mac", {kMacAddress}, kSilent, "set the MAC address"},
    {kBluetooth, 11, 1, "bt on", {}, kSilent, "switch Bluetooth on"},
    {kBluetooth, 11, 0, "bt off", {}, kSilent, "switch Bluetooth off"},
    {kBluetooth, 4, kNoSelector, "bt call", {kPhoneNumber}, kSilent, "dial a number"},
    {kBluetooth, 3, 0, "bt answer", {}, kSilent, "answer a call"},
    {kBluetooth, 3, 1, "bt hangup", {}, kSilent, "hang up"},
    {kBluetooth, 1, 1, "bt next", {}, kSilent, "next track of the connected player"},
    {kBluetooth, 1, 0, "bt previous", {}, kSilent, "previous track of the connected player"},
    {kBluetooth, 2, 0, "bt play", {}, kSilent, "start the connected player"},
    {kBluetooth, 2, 1, "bt stop", {}, kSilent, "stop the connected player"},

    {kKey, 4, kNoSelector, "calibrate", {}, kSilent, "run the key calibration; the service answers nothing else meanwhile"},
    {kChip, 0, kNoSelector, "chip", {}, kVerdict, "check the authentication chip's identity"},

    {kSource, 0, kNoSelector, "source", {kSourceName}, kSilent, "switch to a source"},

    {kMedia, 2, 1, "media play", {}, kSilent, "start the current player"},
    {kMedia, 2, 0, "media pause", {}, kSilent, "pause the current player"},
    {kMedia, 2, 2, "media stop", {}, kSilent, "stop the current player"},
    {kMedia, 0, 0, "media next", {}, kSilent, "next track"},
    {kMedia, 0, 1, "media previous", {}, kSilent, "previous track"},
    {kMedia, 1, kNoSelector, "media jump", {kFolder, kTrack}, kSilent, "jump to a track of a folder (tracks count from 1)"},
    {kMedia, 5, kNoSelector, "media position", {}, kPosition, "folder and track of the disc player"},
    {kMedia, 6, kNoSelector, "media state", {}, kState, "whether the disc player plays"},
    {kMedia, 4, kNoSelector, "media device", {}, kDevice, "disc device"},
    {kMedia, 8, kNoSelector, "media region", {}, kRegionNumber, "read the disc region"},
    {kMedia, 7, kNoSelector, "media region", {kRegion}, kSilent, "set the disc region"},
    {kMedia, 9, 0, "media repeat 0", {}, kSilent, "disc player's repeat mode 0"},
    {kMedia, 9, 1, "media repeat 1", {}, kSilent, "disc player's repeat mode 1"},
    {kMedia, 9, 2, "media repeat 2", {}, kSilent, "disc player's repeat mode 2"},
    {kMedia, 9, 3, "media repeat 3", {}, kSilent, "disc player's repeat mode 3"},
    {kMedia, 9, 4, "media repeat 4", {}, kSilent, "disc player's repeat mode 4"},
    {kMedia, 3, kNoSelector, "media setup", {}, kSilent, "send disc command 200, whatever plays"},

    {kUsbSd, 0, kNoSelector, "usb present", {}, kPresent, "whether a USB device is there"},
    {kUsbSd, 2, kNoSelector, "usb sync", {}, kSynchronised, "whether its synchronisation has finished"},
    {kUsbSd, 1, kNoSelector, "sd present", {}, kPresent, "whether an SD card is there"},
    {kUsbSd, 3, kNoSelector, "sd sync", {}, kSynchronised, "whether its synchronisation has finished"},

    {kGps, 0, kNoSelector, "gps satellites", {}, kSatelliteList, "satellites and their signals"},
    {kGps, 2, kNoSelector, "gps position", {}, kPlace, "longitude and latitude"},
    {kGps, 3, kNoSelector, "gps speed", {}, kSpeed, "speed"},
    {kGps, 4, kNoSelector, "gps angle", {}, kAngle, "angle, as the navigation service last gave it"},
    {kGps, 6, 1, "gps navi 2", {}, kSilent, "send navigation command 2"},
    {kGps, 6, 2, "gps navi 3", {}, kSilent, "send navigation command 3"},
    {kGps, 5, kNoSelector, "gps navi 5", {}, kSilent, "send navigation command 5"},
    {kGps, 7, kNoSelector, "gps navi 10", {}, kSilent, "send navigation command 10"},
};
// clang-format on

const std::size_t kCommandCount = sizeof(kCommands) / sizeof(kCommands[0]);

const char* CommandName(std::uint8_t command) {
  for (const Choice& name : kNames) {
    if (name.value == command) return name.word;
  }
  return nullptr;
}

}  // namespace wire
