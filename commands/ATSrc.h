// The unit's audio and video sources: identifiers, names, and the current one.
#ifndef KORVANDIS_COMMANDS_ATSRC_H
#define KORVANDIS_COMMANDS_ATSRC_H

#include <cstddef>
#include <map>
#include <string>

namespace NXQ {
namespace ZMCAR {

// The framework's source identifiers and names.
class SourcesNameIdMap {
 public:
  SourcesNameIdMap();
  virtual ~SourcesNameIdMap();

  // Fills the table anew.
  void Init();

  // Sets `id` to that of the source named exactly `name`; false, with `id` left unchanged, when
  // there is none.
  bool GetIDByName(const std::string& name, unsigned char& id);

 private:
  std::map<unsigned char, std::string> m_idNameMap;
};

}  // namespace ZMCAR
}  // namespace NXQ

const std::size_t kSourceNameSize = 250;  // bytes, the end included

// Lives for one request.
class Src {
 public:
  Src();
  ~Src();

  // The application that plays the test station's source `code`; "" for an unknown code, never
  // null.
  const char* GetSrcName(unsigned char code);

  // Reads the current source into m_srcName and m_srcID. Both are left unchanged when the source
  // cannot be read, or is too short or too long to be a source's name; m_srcID alone when the name
  // is unknown.
  void GetNowPlaying();

  NXQ::ZMCAR::SourcesNameIdMap m_nameIdMap;
  unsigned char m_srcID;            // 0 ("none") at first
  char m_srcName[kSourceNameSize];  // without the maker prefix; "" at first
  std::map<int, const char*> m_appMap;
};

#endif  // KORVANDIS_COMMANDS_ATSRC_H
