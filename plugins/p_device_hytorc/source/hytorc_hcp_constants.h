#ifndef HYTORC_HCP_CONSTANTS_H
#define HYTORC_HCP_CONSTANTS_H

#include <QByteArray>
#include <QString>
#include <QStringList>

// HCP words shared by the engine and every tool command. Each source file that
// includes this gets its own identical copy.

static const QByteArray c_uicHeader("UIC\r\n");
static const QByteArray c_cmdGetToolInfo("GET ADMIN TOOL_INFO\r\n");
static const QByteArray c_cmdGetJobsProfile("GET JOBS PROFILE\r\n");
static const QByteArray c_cmdGetStateBattery("GET STATE BATTERY\r\n");
static const QByteArray c_eventLogPrefix("SET EVENT LOG");

static const QStringList c_ignoredResponseLines{
    QStringLiteral("HCD"), QStringLiteral("RESPONSE"), QStringLiteral("UIC"),
    QStringLiteral("ERRORCODE,0"), QStringLiteral("PASSED")};
static const QString c_passed(QStringLiteral("PASSED"));
static const QString c_failed(QStringLiteral("FAILED"));
static const QString c_errorCodeOk(QStringLiteral("ERRORCODE,0"));
static const QString c_errorCodePrefix(QStringLiteral("ERRORCODE"));

static const QStringList c_toolInfoKeys{
    QStringLiteral("model"), QStringLiteral("serial"), QStringLiteral("uic_fw"),
    QStringLiteral("mdc_fw"), QStringLiteral("bsm_fw"), QStringLiteral("ublox_fw"),
    QStringLiteral("cycle_count"), QStringLiteral("cal_date"), QStringLiteral("pcb_version")};

#endif // HYTORC_HCP_CONSTANTS_H
