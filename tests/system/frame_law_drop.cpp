#include "frame_law_table.h"
namespace law {
void runDropFrame(Table &, Extent, const QString &) {}
}
