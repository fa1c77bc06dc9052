#include "driver/vcom_record.h"

#include <cstring>

namespace portwren {

int32_t VcomRecordList::Resize(int32_t count, bool zero_fill) {
  if (count < 0) return -3;
  const size_t old = records_.size();
  records_.resize(static_cast<size_t>(count));
  if (zero_fill && records_.size() > old)
    std::memset(&records_[old], 0, (records_.size() - old) * sizeof(VcomRecord));
  return 0;
}

VcomRecord* VcomRecordList::At(int32_t index) {
  const int32_t at = index < 0 ? count() + index : index;
  return at >= 0 && at < count() ? &records_[static_cast<size_t>(at)] : nullptr;
}

}  // namespace portwren
