// The outputs of DataExporter that are written as they were recorded: receiver logs and carried
// files.

#include "export/data_exporter.h"
#include "export/plain_files.h"

namespace morva {

bool DataExporter::unpackRawDataLog(osmik::File* file, const MorvaBag::View& view) {
  const Log log("DataExporter", "unpackRawDataLog");
  return writeRawData(log, "write raw data log error: %d!", *bag_, view, file, reportProgress());
}

bool DataExporter::unpackConfigFiles(osmik::File* file, const MorvaBag::View& view) {
  return writeCarriedFiles(Log("DataExporter", "unpackConfigFiles"), *bag_, view, file,
                           reportProgress());
}

bool DataExporter::unpackProjectData(osmik::File* file, const MorvaBag::View& view) {
  return writeCarriedFiles(Log("DataExporter", "unpackProjectData"), *bag_, view, file,
                           reportProgress());
}

}  // namespace morva
