#ifndef D_OP_PROGRAM_LAYOUTS_H
#define D_OP_PROGRAM_LAYOUTS_H

#include "d_station_part.h"

#include <QByteArray>
#include <QDateTime>
#include <QVariantList>
#include <QVariantMap>

// The data of the parameter set MIDs (Open Protocol R2.8.0, p.81-87): a parameter set is a
// program of the tool's list (listProgram's map, its id the 1-based position), with the
// limits and batch size of the station's settings for it.
class DOpProgramLayouts
{
public:
    static constexpr int c_selectedRevisions = 2;

    static QByteArray programIds(const QVariantList& programs);  // 0011
    static QByteArray programData(const QVariantMap& program, const DStationPart::DProgramSettings& settings);  // 0013
    // 0015: revision 1 the id and the date, no field ids (42 bytes in all); revision 2 the
    // program's data too. An empty `program`: fields from the list are spaces.
    static QByteArray programSelected(int revision, int progId, const QDateTime& when, const QVariantMap& program,
                                      const DStationPart::DProgramSettings& settings);
};

#endif // D_OP_PROGRAM_LAYOUTS_H
