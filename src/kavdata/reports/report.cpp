#include "kavdata/reports/report.h"

#include <ctime>

#include "kavdata/device/muted_warnings.h"

namespace kav {

kav_report gather_report() {
  const kav_muted_warnings muted;
  kav_report report;
  report.device = read_device();
  report.next = predict_next_start(report.device);
  report.data_sets = list_data_sets(report.device, report.data_sets_error);
  report.keys = trusted_keys();
  report.zone_change = local_zone_change(report.device, report.next, std::time(nullptr));
  return report;
}

}  // namespace kav
