#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>

namespace sim {

struct HopperConfig
{
    QString coinId;
    int count = 0;
    int capacity = 1000;
    bool enabled = true;
    QString firmware;
    QString model;
    quint32 serial = 0;

    // A hopper of the recycler's own make with the given coin, fill and room.
    static HopperConfig of(const char* coin, int count, int capacity, bool enabled, quint32 serial);
};

struct Config
{
    quint8 address = 55;

    // Identification answers (headers 245, 246, 244, 192, 241, 242).
    QString equipmentCategory = QStringLiteral("Changer");
    QString manufacturer = QStringLiteral("CPI");
    QString productCode = QStringLiteral("BCR");
    QString buildCode = QStringLiteral("BCR330");
    QString softwareRevision = QStringLiteral("BCR-RU-V2.14");
    quint32 serialNumber = 1503278;

    // Controller manifest of the coin acceptor (unit 2).
    QString acceptorFirmware = QStringLiteral("C2-5.31");
    QString acceptorModel = QStringLiteral("C2-RU");
    quint32 acceptorSerial = 734112;

    QMap<int, QString> coinIds;  // position (1..16) -> six-character coin id
    QList<HopperConfig> hoppers; // hopper h is hoppers[h-1]
    quint32 cashbox = 0;         // minor units
    qint64 clockOffsetSecs = 0;  // device clock = host clock + offset
    // Audit counters as the device's past life left them: group (70, 80, 87) -> index -> value.
    QMap<int, QMap<int, quint32>> auditCounters;

    int coinAcceptMs = 400;     // a coin in flight through the acceptor, normal mode
    int coinAcceptFastMs = 200; // the same in fast mode (mod var set 255)
    int payoutMsPerCoin = 150;
    int resetInitMs = 3000;
    int answerDelayMs = 2;       // pause between the end of a request and the first answer byte
    int interByteTimeoutMs = 50; // a partial frame older than this is discarded
    int babbleIntervalMs = 20;
    int baudRate = 115200; // used for pacing and when serving a real serial device
    bool echo = true;

    static Config defaults();
    // Keys missing from the file keep their values from defaults(). On failure *error is set and
    // defaults() is returned.
    static Config fromJsonFile(const QString& path, QString* error);
    static Config fromJson(const QByteArray& json, QString* error);
    QByteArray toJson() const;
};

} // namespace sim
