#ifndef D_OP_IDENTIFIER_LAYOUTS_H
#define D_OP_IDENTIFIER_LAYOUTS_H

#include <QByteArray>
#include <QStringList>

// The data of the identifier MIDs (Open Protocol R2.8.0, p.130-131).
class DOpIdentifierLayouts
{
public:
    static constexpr int c_revisions = 2;
    // 0052: revision 1 the VIN alone, no field id; revision 2 the four parts with ids 01-04.
    static QByteArray identifiers(int revision, const QStringList& parts);
};

#endif // D_OP_IDENTIFIER_LAYOUTS_H
