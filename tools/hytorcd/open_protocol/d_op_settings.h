#ifndef D_OP_SETTINGS_H
#define D_OP_SETTINGS_H

#include <QString>
#include <QStringList>

// What the station says of itself in Open Protocol messages.
struct DOpSettings {
    int cell = 1;
    int channel = 1;
    QString station;
    QStringList goodStatus;  // the tool's status words for a good tightening
};

#endif // D_OP_SETTINGS_H
