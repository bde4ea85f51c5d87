#include "ATSrc.h"

#include <cstring>

#include "misc.h"
#include "platform/pps_guards.h"
#include "platform/print.h"

namespace NXQ {
namespace ZMCAR {
namespace {

// At its identifier's place.
const char* const kSourceNames[] = {"none",       "disc",    "sd",   "usb",    "rusb",   "radio",
                                    "hdradio",    "dab",     "sxm",  "tv",     "aux1",   "aux2",
                                    "bttel",      "btaudio", "ipod", "camera", "navi",   "pandora",
                                    "iheadradio", "tpms",    "cdc",  "dar",    "linker", "tsp",
                                    "ptt",        "asr",     "mpu",  "svc"};
static_assert(sizeof(kSourceNames) / sizeof(kSourceNames[0]) == 28, "identifiers 0 to 27");

}  // namespace

SourcesNameIdMap::SourcesNameIdMap() { Init(); }

SourcesNameIdMap::~SourcesNameIdMap() {}

void SourcesNameIdMap::Init() {
  m_idNameMap.clear();
  unsigned char id = 0;
  for (const char* name : kSourceNames) m_idNameMap[id++] = name;
}

bool SourcesNameIdMap::GetIDByName(const std::string& name, unsigned char& id) {
  for (const auto& entry : m_idNameMap) {
    if (entry.second != name) continue;
    id = entry.first;
    return true;
  }
  return false;
}

}  // namespace ZMCAR
}  // namespace NXQ

namespace {

const char kNowPlaying[] = "/pps/zelmar/navigator/nowplaying";
const std::size_t kObjectSize = 16384;
const std::size_t kPrefixSize = 2;  // the maker prefix of application names

struct AppEntry {
  unsigned char code;  // the test station's
  const char* name;
};

const AppEntry g_appList[] = {
    {1, "zmradio"}, {13, "zmnavi"}, {7, "zmbttel"}, {28, "zmbtaudio"}, {12, "zmsd"},
    {6, "zmusb"},   {2, "zmdisc"},  {4, "zmaux2"},  {9, "zmaux1"},     {18, "zmipod"},
};

}  // namespace

Src::Src() : m_srcID(0), m_srcName() {
  for (const AppEntry& entry : g_appList) m_appMap[entry.code] = entry.name;
}

Src::~Src() {}

const char* Src::GetSrcName(unsigned char code) {
  const auto entry = m_appMap.find(code);
  return entry != m_appMap.end() ? entry->second : "";
}

void Src::GetNowPlaying() {
  char text[kObjectSize];
  if (!ReadText(kNowPlaying, text, sizeof(text))) return;
  ReportText(text);
  const char* source = nullptr;
  platform::Decoder decoder;
  pps_decoder_parse_pps_str(decoder.Get(), text);
  if (pps_decoder_push(decoder.Get(), nullptr) == PPS_DECODER_OK) {
    pps_decoder_get_string(decoder.Get(), "zmplaysource", &source);
    pps_decoder_pop(decoder.Get());
  }
  if (source == nullptr) return;
  platform::PrintError("read decoder bufGet is('%s') \n", source);
  if (std::strlen(source) < kPrefixSize) return;

  const char* const name = source + kPrefixSize;
  if (std::strlen(name) >= sizeof(m_srcName)) {
    platform::PrintError("zmplaysource of %d bytes does not fit \n",
                         static_cast<int>(std::strlen(source)));
    return;
  }
  CopyText(m_srcName, sizeof(m_srcName), name);
  platform::PrintError("m_srcName is('%s') \n", m_srcName);
  unsigned char id = 0;
  if (!m_nameIdMap.GetIDByName(m_srcName, id)) {
    platform::PrintError("GetIDByName fail \n");
    return;
  }
  m_srcID = id;
  platform::PrintError("m_srcID is('%d') \n", m_srcID);
}
