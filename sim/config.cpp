#include "config.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

namespace sim {

HopperConfig HopperConfig::of(const char* coin, int count, int capacity, bool enabled, quint32 serial)
{
    HopperConfig h;
    h.coinId = QString::fromLatin1(coin);
    h.count = count;
    h.capacity = capacity;
    h.enabled = enabled;
    h.firmware = QStringLiteral("HP-3.02");
    h.model = QStringLiteral("BCR-HOP");
    h.serial = serial;
    return h;
}

Config Config::defaults()
{
    Config c;
    c.coinIds = {
        {1, QStringLiteral("RU100A")}, {2, QStringLiteral("RU200A")}, {3, QStringLiteral("RU500A")},
        {4, QStringLiteral("RU1K0A")}, {5, QStringLiteral("RU010A")}, {6, QStringLiteral("RU050B")},
        {7, QStringLiteral("RU100B")}, {8, QStringLiteral("RU1K0B")},
    };
    const auto hopper = &HopperConfig::of;
    c.hoppers = {
        hopper("RU1K0A", 200, 800, true, 610021),  hopper("RU500A", 250, 800, true, 610022),
        hopper("RU200A", 300, 1000, true, 610023), hopper("RU100A", 400, 1000, true, 610024),
        hopper("RU050B", 0, 1200, false, 610025),
    };
    c.cashbox = 0;
    return c;
}

namespace {

class Reader
{
public:
    explicit Reader(QString* error) : error_(error) {}

    bool failed() const { return !error_->isEmpty(); }
    void fail(const QString& what)
    {
        if (!failed())
            *error_ = what;
    }

    void allowOnly(const QJsonObject& o, const QString& where, std::initializer_list<const char*> keys)
    {
        QSet<QString> known;
        for (const char* k : keys)
            known.insert(QString::fromLatin1(k));
        for (auto it = o.begin(); it != o.end(); ++it)
            if (!known.contains(it.key()))
                fail(QStringLiteral("%1: unknown key \"%2\"").arg(where, it.key()));
    }

    void integer(const QJsonObject& o, const char* key, qint64 min, qint64 max, qint64& out)
    {
        const QJsonValue v = o.value(QLatin1String(key));
        if (v.isUndefined())
            return;
        const double d = v.toDouble(-1e300);
        if (!v.isDouble() || d != double(qint64(d)) || d < double(min) || d > double(max)) {
            fail(QStringLiteral("\"%1\" must be an integer from %2 to %3")
                     .arg(QLatin1String(key))
                     .arg(min)
                     .arg(max));
            return;
        }
        out = qint64(d);
    }
    template <typename T> void number(const QJsonObject& o, const char* key, qint64 min, qint64 max, T& out)
    {
        qint64 v = qint64(out);
        integer(o, key, min, max, v);
        out = T(v);
    }
    // The key's value; an absent key, or a value of another kind (reported), gives an undefined one.
    QJsonValue typed(const QJsonObject& o, const char* key, bool (QJsonValue::*is)() const,
                     const char* mustBe)
    {
        const QJsonValue v = o.value(QLatin1String(key));
        if (v.isUndefined() || (v.*is)())
            return v;
        fail(QStringLiteral("\"%1\" must be %2").arg(QLatin1String(key), QLatin1String(mustBe)));
        return QJsonValue(QJsonValue::Undefined);
    }
    void string(const QJsonObject& o, const char* key, QString& out)
    {
        const QJsonValue v = typed(o, key, &QJsonValue::isString, "a string");
        if (!v.isUndefined())
            out = v.toString();
    }
    void boolean(const QJsonObject& o, const char* key, bool& out)
    {
        const QJsonValue v = typed(o, key, &QJsonValue::isBool, "true or false");
        if (!v.isUndefined())
            out = v.toBool();
    }
    void coinId(const QString& id, const QString& where)
    {
        if (id.size() != 6 || id.toLatin1() != id.toUtf8())
            fail(QStringLiteral("%1: a coin id has six Latin-1 characters, not \"%2\"").arg(where, id));
    }

private:
    QString* error_;
};

} // namespace

Config Config::fromJsonFile(const QString& path, QString* error)
{
    QString dummy;
    QString& err = error ? *error : dummy;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        err = QStringLiteral("%1: %2").arg(path, file.errorString());
        return defaults();
    }
    Config c = fromJson(file.readAll(), &err);
    if (!err.isEmpty())
        err = QStringLiteral("%1: %2").arg(path, err);
    return c;
}

Config Config::fromJson(const QByteArray& json, QString* error)
{
    QString dummy;
    QString& err = error ? *error : dummy;
    err.clear();
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(json, &parseError);
    if (doc.isNull()) {
        err = QStringLiteral("offset %1: %2").arg(parseError.offset).arg(parseError.errorString());
        return defaults();
    }
    if (!doc.isObject()) {
        err = QStringLiteral("the configuration must be a JSON object");
        return defaults();
    }
    Config c = defaults();
    Reader r(&err);
    const QJsonObject o = doc.object();
    r.allowOnly(o, QStringLiteral("configuration"),
                {"address", "echo", "baudRate", "cashbox", "clockOffsetSecs", "identification", "acceptor",
                 "coins", "hoppers", "timings"});
    r.number(o, "address", 2, 255, c.address);
    r.boolean(o, "echo", c.echo);
    r.number(o, "baudRate", 300, 4000000, c.baudRate);
    r.number(o, "cashbox", 0, 0xFFFFFFFFLL, c.cashbox);
    r.number(o, "clockOffsetSecs", -0xFFFFFFFFLL, 0xFFFFFFFFLL, c.clockOffsetSecs);

    const QJsonObject id = o.value(QLatin1String("identification")).toObject();
    r.allowOnly(id, QStringLiteral("identification"),
                {"equipmentCategory", "manufacturer", "productCode", "buildCode", "softwareRevision",
                 "serialNumber"});
    r.string(id, "equipmentCategory", c.equipmentCategory);
    r.string(id, "manufacturer", c.manufacturer);
    r.string(id, "productCode", c.productCode);
    r.string(id, "buildCode", c.buildCode);
    r.string(id, "softwareRevision", c.softwareRevision);
    r.number(id, "serialNumber", 0, 0xFFFFFF, c.serialNumber);

    const QJsonObject acc = o.value(QLatin1String("acceptor")).toObject();
    r.allowOnly(acc, QStringLiteral("acceptor"), {"firmware", "model", "serial"});
    r.string(acc, "firmware", c.acceptorFirmware);
    r.string(acc, "model", c.acceptorModel);
    r.number(acc, "serial", 0, 0xFFFFFF, c.acceptorSerial);

    if (o.contains(QLatin1String("coins"))) {
        if (!o.value(QLatin1String("coins")).isObject())
            r.fail(QStringLiteral("\"coins\" must map positions to coin ids"));
        c.coinIds.clear();
        const QJsonObject coins = o.value(QLatin1String("coins")).toObject();
        for (auto it = coins.begin(); it != coins.end(); ++it) {
            bool ok = false;
            const int pos = it.key().toInt(&ok);
            if (!ok || pos < 1 || pos > 16) {
                r.fail(QStringLiteral("coins: position \"%1\" is not 1 to 16").arg(it.key()));
                continue;
            }
            if (!it.value().isString()) {
                r.fail(QStringLiteral("coins: position %1 needs a coin id").arg(pos));
                continue;
            }
            r.coinId(it.value().toString(), QStringLiteral("coins"));
            c.coinIds.insert(pos, it.value().toString());
        }
    }

    if (o.contains(QLatin1String("hoppers"))) {
        const QJsonValue hv = o.value(QLatin1String("hoppers"));
        if (!hv.isArray())
            r.fail(QStringLiteral("\"hoppers\" must be an array"));
        const QJsonArray hoppers = hv.toArray();
        if (hoppers.size() > 16)
            r.fail(QStringLiteral("at most 16 hoppers"));
        c.hoppers.clear();
        for (int i = 0; i < hoppers.size(); ++i) {
            const QString where = QStringLiteral("hopper %1").arg(i + 1);
            if (!hoppers.at(i).isObject()) {
                r.fail(where + QStringLiteral(": must be an object"));
                continue;
            }
            const QJsonObject ho = hoppers.at(i).toObject();
            r.allowOnly(ho, where, {"coin", "count", "capacity", "enabled", "firmware", "model", "serial"});
            HopperConfig h;
            h.firmware = QStringLiteral("HP-3.02");
            h.model = QStringLiteral("BCR-HOP");
            h.serial = quint32(610021 + i);
            if (!ho.value(QLatin1String("coin")).isString())
                r.fail(where + QStringLiteral(": \"coin\" is required"));
            r.string(ho, "coin", h.coinId);
            r.coinId(h.coinId, where);
            r.number(ho, "count", 0, 65535, h.count);
            r.number(ho, "capacity", 1, 65535, h.capacity);
            r.boolean(ho, "enabled", h.enabled);
            r.string(ho, "firmware", h.firmware);
            r.string(ho, "model", h.model);
            r.number(ho, "serial", 0, 0xFFFFFF, h.serial);
            c.hoppers.append(h);
        }
    }

    const QJsonObject t = o.value(QLatin1String("timings")).toObject();
    r.allowOnly(t, QStringLiteral("timings"),
                {"coinAcceptMs", "coinAcceptFastMs", "payoutMsPerCoin", "resetInitMs", "answerDelayMs",
                 "interByteTimeoutMs", "babbleIntervalMs"});
    r.number(t, "coinAcceptMs", 1, 600000, c.coinAcceptMs);
    r.number(t, "coinAcceptFastMs", 1, 600000, c.coinAcceptFastMs);
    r.number(t, "payoutMsPerCoin", 1, 600000, c.payoutMsPerCoin);
    r.number(t, "resetInitMs", 1, 600000, c.resetInitMs);
    r.number(t, "answerDelayMs", 0, 10000, c.answerDelayMs);
    r.number(t, "interByteTimeoutMs", 1, 10000, c.interByteTimeoutMs);
    r.number(t, "babbleIntervalMs", 1, 10000, c.babbleIntervalMs);

    for (const char* section : {"identification", "acceptor", "timings"}) {
        const QJsonValue v = o.value(QLatin1String(section));
        if (!v.isUndefined() && !v.isObject())
            r.fail(QStringLiteral("\"%1\" must be an object").arg(QLatin1String(section)));
    }
    if (r.failed())
        return defaults();
    return c;
}

QByteArray Config::toJson() const
{
    QJsonObject o;
    o.insert(QStringLiteral("address"), int(address));
    o.insert(QStringLiteral("echo"), echo);
    o.insert(QStringLiteral("baudRate"), baudRate);
    o.insert(QStringLiteral("cashbox"), double(cashbox));
    o.insert(QStringLiteral("clockOffsetSecs"), double(clockOffsetSecs));
    o.insert(QStringLiteral("identification"),
             QJsonObject{{QStringLiteral("equipmentCategory"), equipmentCategory},
                         {QStringLiteral("manufacturer"), manufacturer},
                         {QStringLiteral("productCode"), productCode},
                         {QStringLiteral("buildCode"), buildCode},
                         {QStringLiteral("softwareRevision"), softwareRevision},
                         {QStringLiteral("serialNumber"), double(serialNumber)}});
    o.insert(QStringLiteral("acceptor"), QJsonObject{{QStringLiteral("firmware"), acceptorFirmware},
                                                     {QStringLiteral("model"), acceptorModel},
                                                     {QStringLiteral("serial"), double(acceptorSerial)}});
    QJsonObject coins;
    for (auto it = coinIds.begin(); it != coinIds.end(); ++it)
        coins.insert(QString::number(it.key()), it.value());
    o.insert(QStringLiteral("coins"), coins);
    QJsonArray hopperArray;
    for (const HopperConfig& h : hoppers)
        hopperArray.append(QJsonObject{{QStringLiteral("coin"), h.coinId},
                                       {QStringLiteral("count"), h.count},
                                       {QStringLiteral("capacity"), h.capacity},
                                       {QStringLiteral("enabled"), h.enabled},
                                       {QStringLiteral("firmware"), h.firmware},
                                       {QStringLiteral("model"), h.model},
                                       {QStringLiteral("serial"), double(h.serial)}});
    o.insert(QStringLiteral("hoppers"), hopperArray);
    o.insert(QStringLiteral("timings"),
             QJsonObject{{QStringLiteral("coinAcceptMs"), coinAcceptMs},
                         {QStringLiteral("coinAcceptFastMs"), coinAcceptFastMs},
                         {QStringLiteral("payoutMsPerCoin"), payoutMsPerCoin},
                         {QStringLiteral("resetInitMs"), resetInitMs},
                         {QStringLiteral("answerDelayMs"), answerDelayMs},
                         {QStringLiteral("interByteTimeoutMs"), interByteTimeoutMs},
                         {QStringLiteral("babbleIntervalMs"), babbleIntervalMs}});
    return QJsonDocument(o).toJson(QJsonDocument::Indented);
}

} // namespace sim
