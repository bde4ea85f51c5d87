// The two parts of page.html; for this room only.
#ifndef KORVANDIS_RECORDS_PAGE_H
#define KORVANDIS_RECORDS_PAGE_H

namespace records {

extern const char kPageHead[];  // in front of the data
extern const char kPageTail[];  // behind it

}  // namespace records

#endif  // KORVANDIS_RECORDS_PAGE_H
