// A file on a PPS object.
#ifndef KORVANDIS_FRAMEWORK_PPSFILEBASE_H
#define KORVANDIS_FRAMEWORK_PPSFILEBASE_H

#include "FileBase.h"
#include "Interfaces.h"

namespace NXQ {
namespace ZMCAR {

// A lost object stays closed until Open is called again.
class PPSFileBase : public FileBase {
 public:
  // Keeps both; neither is owned.
  PPSFileBase(const fileTagInfo& tag, IPPSOnChange* owner);
  ~PPSFileBase() override;

  bool Init() override;
  bool Open() override;

  // Parses PPS text, in place, and reports each attribute line to the owner's OnAttributeChange;
  // other lines go to OnPPSStatusChange, a malformed line is skipped. Of a text that fills a
  // whole read the last, cut line is left out.
  void OnDataChange(unsigned char* data, int size) override;

  // Reports a status change to the owner.
  virtual void OnPPSStatusChange(pps_status_t status, pps_attrib_t* attribute);

  // Writes `length` bytes of PPS text to the object; true when all were taken. Any thread.
  bool WritePPS(const char* text, int length) const;

 private:
  IPPSOnChange* const m_owner;
};

}  // namespace ZMCAR
}  // namespace NXQ

#endif  // KORVANDIS_FRAMEWORK_PPSFILEBASE_H
