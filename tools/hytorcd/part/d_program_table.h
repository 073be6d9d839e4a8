#ifndef D_PROGRAM_TABLE_H
#define D_PROGRAM_TABLE_H

#include "d_station_config.h"
#include "d_station_part.h"

// The [program.N] sections of hytorcd's settings file: each program's torque and angle limits
// (N·m, degrees) and batch size, checked as a whole; and the table --check-config prints.
class DProgramTable
{
public:
    static const QString c_sectionPrefix;  // "program."

    // False with one line naming the file, the section, the key and what is allowed.
    static bool read(const DStationConfig& config, QHash<int, DStationPart::DProgramSettings>* programs, QString* error);
    // One row per program, limits and batch size; "-" where not set.
    static QString table(const QHash<int, DStationPart::DProgramSettings>& programs);

private:
    static bool readSection(const QString& where, const QMap<QString, QString>& keys,
                            DStationPart::DProgramSettings* settings, QString* error);
};

#endif // D_PROGRAM_TABLE_H
