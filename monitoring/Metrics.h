#pragma once
// The service and its jobs in the Prometheus text exposition format, for node_exporter's textfile
// collector or any scraper: how a fleet of servers is watched from one place.
#include <string>
#include <vector>

#include "monitoring/JobStates.h"
#include "monitoring/ServiceState.h"

namespace tw {

struct MetricsInput {
  ServiceView service;
  std::vector<JobState> jobs;
  int64_t mailsWaiting = 0;
  int64_t mailsGivenUp = 0;
  Date now = 0;
};

MetricsInput ReadMetricsInput(TWSettings& settings, const std::string& applicationFolder, Date now);
std::string MetricsText(const MetricsInput& input);

// Writes the metrics to `path` whole or not at all (a collector never reads half a file), readable
// by all, since the collector runs under its own account. An error text, or empty.
std::string WriteMetricsFile(const std::string& path, const std::string& text);

}  // namespace tw
