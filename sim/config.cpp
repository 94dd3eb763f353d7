#include "config.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <type_traits>
#include <variant>
#include <vector>

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

    void allowOnly(const QJsonObject& o, const QString& where, const std::vector<const char*>& keys)
    {
        QSet<QString> known;
        for (const char* k : keys)
            known.insert(QString::fromLatin1(k));
        for (auto it = o.begin(); it != o.end(); ++it)
            if (!known.contains(it.key()))
                fail(QStringLiteral("%1: unknown key \"%2\"").arg(where, it.key()));
    }

    // v as an integer from min to max; otherwise the error says `what` must be one.
    bool integer(const QJsonValue& v, const QString& what, qint64 min, qint64 max, qint64& out)
    {
        const double d = v.toDouble(-1e300);
        if (!v.isDouble() || d != double(qint64(d)) || d < double(min) || d > double(max)) {
            fail(QStringLiteral("%1 must be an integer from %2 to %3").arg(what).arg(min).arg(max));
            return false;
        }
        out = qint64(d);
        return true;
    }
    void integer(const QJsonObject& o, const char* key, qint64 min, qint64 max, qint64& out)
    {
        const QJsonValue v = o.value(QLatin1String(key));
        if (!v.isUndefined())
            integer(v, QStringLiteral("\"%1\"").arg(QLatin1String(key)), min, max, out);
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

// A key of a JSON object and the member it stands for; numbers are checked against min and max.
template <class S> struct Field
{
    const char* key;
    std::variant<QString S::*, bool S::*, quint8 S::*, int S::*, quint32 S::*, qint64 S::*> member;
    qint64 min = 0, max = 0;
};

template <class S> using Fields = std::vector<Field<S>>;

// The keys of an object whose members are all plain fields, in the order they are checked.
struct Section
{
    const char* name;
    Fields<Config> fields;
};

const Fields<Config> topFields = {
    {"address", &Config::address, 2, 255},
    {"echo", &Config::echo},
    {"baudRate", &Config::baudRate, 300, 4000000},
    {"cashbox", &Config::cashbox, 0, 0xFFFFFFFFLL},
    {"clockOffsetSecs", &Config::clockOffsetSecs, -0xFFFFFFFFLL, 0xFFFFFFFFLL},
};

const Section identification = {"identification",
                                {{"equipmentCategory", &Config::equipmentCategory},
                                 {"manufacturer", &Config::manufacturer},
                                 {"productCode", &Config::productCode},
                                 {"buildCode", &Config::buildCode},
                                 {"softwareRevision", &Config::softwareRevision},
                                 {"serialNumber", &Config::serialNumber, 0, 0xFFFFFF}}};
const Section acceptor = {"acceptor",
                          {{"firmware", &Config::acceptorFirmware},
                           {"model", &Config::acceptorModel},
                           {"serial", &Config::acceptorSerial, 0, 0xFFFFFF}}};
const Section timings = {"timings",
                         {{"coinAcceptMs", &Config::coinAcceptMs, 1, 600000},
                          {"coinAcceptFastMs", &Config::coinAcceptFastMs, 1, 600000},
                          {"payoutMsPerCoin", &Config::payoutMsPerCoin, 1, 600000},
                          {"resetInitMs", &Config::resetInitMs, 1, 600000},
                          {"answerDelayMs", &Config::answerDelayMs, 0, 10000},
                          {"interByteTimeoutMs", &Config::interByteTimeoutMs, 1, 10000},
                          {"babbleIntervalMs", &Config::babbleIntervalMs, 1, 10000}}};
const Section* const sections[] = {&identification, &acceptor, &timings};

// A hopper's keys after "coin", which is required and read first.
const Fields<HopperConfig> hopperFields = {
    {"count", &HopperConfig::count, 0, 65535}, {"capacity", &HopperConfig::capacity, 1, 65535},
    {"enabled", &HopperConfig::enabled},       {"firmware", &HopperConfig::firmware},
    {"model", &HopperConfig::model},           {"serial", &HopperConfig::serial, 0, 0xFFFFFF},
};

// "auditCounters": {"80": {"1": 500000}}, group -> index -> value; the hoppers are read before.
void readAuditCounters(Reader& r, const QJsonValue& v, Config& c)
{
    if (!v.isObject())
        r.fail(QStringLiteral("\"auditCounters\" must map groups to counters"));
    const QJsonObject groups = v.toObject();
    for (auto g = groups.begin(); g != groups.end(); ++g) {
        bool ok = false;
        const int group = g.key().toInt(&ok);
        if (!ok || (group != 70 && group != 80 && group != 87)) {
            r.fail(QStringLiteral("auditCounters: group \"%1\" is not 70, 80 or 87").arg(g.key()));
            continue;
        }
        if (!g.value().isObject()) {
            r.fail(QStringLiteral("auditCounters: group %1 must map indexes to values").arg(group));
            continue;
        }
        const int last = group == 70 ? 16 : int(c.hoppers.size());
        const QJsonObject counters = g.value().toObject();
        for (auto it = counters.begin(); it != counters.end(); ++it) {
            const int index = it.key().toInt(&ok);
            if (!ok || index < 1 || index > last) {
                r.fail(QStringLiteral("auditCounters: group %1 has no index \"%2\" (1 to %3)")
                           .arg(group)
                           .arg(it.key())
                           .arg(last));
                continue;
            }
            qint64 value = 0;
            const QString what = QStringLiteral("auditCounters: %1 %2").arg(group).arg(index);
            if (r.integer(it.value(), what, 0, 0xFFFFFFFFLL, value))
                c.auditCounters[group][index] = quint32(value);
        }
    }
}

QJsonObject auditCountersJson(const QMap<int, QMap<int, quint32>>& groups)
{
    QJsonObject out;
    for (auto g = groups.begin(); g != groups.end(); ++g) {
        QJsonObject counters;
        for (auto it = g.value().begin(); it != g.value().end(); ++it)
            counters.insert(QString::number(it.key()), double(it.value()));
        out.insert(QString::number(g.key()), counters);
    }
    return out;
}

template <class S> std::vector<const char*> keys(const Fields<S>& fields)
{
    std::vector<const char*> out;
    for (const Field<S>& f : fields)
        out.push_back(f.key);
    return out;
}

template <class S> void read(Reader& r, const QJsonObject& o, const Fields<S>& fields, S& s)
{
    for (const Field<S>& f : fields)
        std::visit(
            [&](auto member) {
                auto& out = s.*member;
                using T = std::decay_t<decltype(out)>;
                if constexpr (std::is_same_v<T, QString>)
                    r.string(o, f.key, out);
                else if constexpr (std::is_same_v<T, bool>)
                    r.boolean(o, f.key, out);
                else
                    r.number(o, f.key, f.min, f.max, out);
            },
            f.member);
}

void read(Reader& r, const QJsonObject& top, const Section& section, Config& c)
{
    const QJsonObject o = top.value(QLatin1String(section.name)).toObject();
    r.allowOnly(o, QString::fromLatin1(section.name), keys(section.fields));
    read(r, o, section.fields, c);
}

// "coins": {"1": "RU100A"}, position -> coin id; the defaults' coins are replaced, not merged.
void readCoins(Reader& r, const QJsonValue& v, Config& c)
{
    if (!v.isObject())
        r.fail(QStringLiteral("\"coins\" must map positions to coin ids"));
    c.coinIds.clear();
    const QJsonObject coins = v.toObject();
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

// Hopper i (from 0) of the "hoppers" array, appended to c.hoppers when it is an object.
void readHopper(Reader& r, const QJsonValue& v, int i, Config& c)
{
    const QString where = QStringLiteral("hopper %1").arg(i + 1);
    if (!v.isObject()) {
        r.fail(where + QStringLiteral(": must be an object"));
        return;
    }
    const QJsonObject ho = v.toObject();
    std::vector<const char*> hopperKeys = keys(hopperFields);
    hopperKeys.push_back("coin");
    r.allowOnly(ho, where, hopperKeys);
    HopperConfig h;
    h.firmware = QStringLiteral("HP-3.02");
    h.model = QStringLiteral("BCR-HOP");
    h.serial = quint32(610021 + i);
    if (!ho.value(QLatin1String("coin")).isString())
        r.fail(where + QStringLiteral(": \"coin\" is required"));
    r.string(ho, "coin", h.coinId);
    r.coinId(h.coinId, where);
    read(r, ho, hopperFields, h);
    c.hoppers.append(h);
}

// "hoppers": [{"coin": "RU1K0A", ...}, ...]; the defaults' hoppers are replaced, not merged.
void readHoppers(Reader& r, const QJsonValue& v, Config& c)
{
    if (!v.isArray())
        r.fail(QStringLiteral("\"hoppers\" must be an array"));
    const QJsonArray hoppers = v.toArray();
    if (hoppers.size() > 16)
        r.fail(QStringLiteral("at most 16 hoppers"));
    c.hoppers.clear();
    for (int i = 0; i < hoppers.size(); ++i)
        readHopper(r, hoppers.at(i), i, c);
}

// The whole configuration object, in the order its errors are reported: the first one found stays.
void readObject(Reader& r, const QJsonObject& o, Config& c)
{
    std::vector<const char*> topKeys = keys(topFields);
    topKeys.insert(topKeys.end(), {"coins", "hoppers", "auditCounters"});
    for (const Section* section : sections)
        topKeys.push_back(section->name);
    r.allowOnly(o, QStringLiteral("configuration"), topKeys);
    read(r, o, topFields, c);
    read(r, o, identification, c);
    read(r, o, acceptor, c);
    if (o.contains(QLatin1String("coins")))
        readCoins(r, o.value(QLatin1String("coins")), c);
    if (o.contains(QLatin1String("hoppers")))
        readHoppers(r, o.value(QLatin1String("hoppers")), c);
    if (o.contains(QLatin1String("auditCounters")))
        readAuditCounters(r, o.value(QLatin1String("auditCounters")), c);
    read(r, o, timings, c);
    for (const Section* section : sections) {
        const QJsonValue v = o.value(QLatin1String(section->name));
        if (!v.isUndefined() && !v.isObject())
            r.fail(QStringLiteral("\"%1\" must be an object").arg(QLatin1String(section->name)));
    }
}

template <class S> void write(QJsonObject& o, const Fields<S>& fields, const S& s)
{
    for (const Field<S>& f : fields)
        std::visit(
            [&](auto member) {
                const auto& value = s.*member;
                using T = std::decay_t<decltype(value)>;
                if constexpr (std::is_same_v<T, QString> || std::is_same_v<T, bool>)
                    o.insert(QLatin1String(f.key), value);
                else
                    o.insert(QLatin1String(f.key), double(value));
            },
            f.member);
}

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
    readObject(r, doc.object(), c);
    if (r.failed())
        return defaults();
    return c;
}

QByteArray Config::toJson() const
{
    QJsonObject o;
    write(o, topFields, *this);
    for (const Section* section : sections) {
        QJsonObject so;
        write(so, section->fields, *this);
        o.insert(QLatin1String(section->name), so);
    }
    QJsonObject coins;
    for (auto it = coinIds.begin(); it != coinIds.end(); ++it)
        coins.insert(QString::number(it.key()), it.value());
    o.insert(QStringLiteral("coins"), coins);
    QJsonArray hopperArray;
    for (const HopperConfig& h : hoppers) {
        QJsonObject ho{{QStringLiteral("coin"), h.coinId}};
        write(ho, hopperFields, h);
        hopperArray.append(ho);
    }
    o.insert(QStringLiteral("hoppers"), hopperArray);
    o.insert(QStringLiteral("auditCounters"), auditCountersJson(auditCounters));
    return QJsonDocument(o).toJson(QJsonDocument::Indented);
}

} // namespace sim
