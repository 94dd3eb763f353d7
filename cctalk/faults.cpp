#include "cctalk/faults.h"

#include "host/qtcompat.h"

namespace {

// The operator's text for a fault code and its extra byte; the first row that matches wins,
// so a code's rows for particular extra bytes stand before its row for any.
struct FaultText
{
    unsigned char code;
    int extra;
    const char* text;
};

const int anyExtra = -1;
const char* const unknownFault = "Неизвестная ошибка";

const FaultText selfcheckTexts[] = {
    {1, anyExtra, "Ошибка EEPROM приемника монет"},
    {2, 6, "Ошибка датчика монет в устройстве поштучной подачи"},
    {2, 8, "Ошибка датчика монет в устройстве поштучной подачи"},
    {2, 7, "Ошибка датчика монет в устройстве возврата"},
    {2, 9, "Ошибка датчика монет в устройстве возврата"},
    {2, anyExtra, "Ошибка магнитного датчика монет"},
    {3, anyExtra, "Ошибка датчика валидации"},
    {8, anyExtra, "Ошибка на выходе сортировщика, блокировка"},
    {9, anyExtra, "Ошибка NVRAM"},
    {19, anyExtra, "Ошибка механизма возврата монет"},
    {22, anyExtra, "Ошибка датчика температуры"},
    {23, 1, "Неисправен мотор в устройстве поштучной подачи, заклинивание"},
    {23, 2, "Неисправен мотор подъемника, заклинивание"},
    {23, 3, "Неисправен мотор возврата"},
    {23, 4, "Неисправен мотор в устройстве поштучной подачи"},
    {23, 5, "Неисправен мотор подъемника"},
    {23, 6, "Неисправен мотор в устройстве поштучной подачи, блокировка датчика"},
    {23, 7, "Неисправен мотор подъемника, блокировка датчика"},
    {23, 16, "Неисправен ремень в устройстве поштучной подачи"},
    {23, 17, "Неисправен ремень подъемника"},
    {23, anyExtra, "Неисправен мотор выдачи монет"},
    {33, anyExtra, "Ошибка входного лотка монет"},
    {35, 2, "Приемник монет неисправен"},
    {35, anyExtra, "Приемник монет, заклинивание"},
    {40, anyExtra, "Ошибка RAM"},
    {48, 1, "Отсутствует кэшбокс"},
    {48, 2, "Отсутствует панель с хопперами"},
    {48, 3, "Отсутствуют хопперы"},
    {48, 4, "ID хоппера не соответствует"},
    {48, 5, "Отсутствует приемник монет"},
    {48, anyExtra, "Модуль не отвечает"},
    {49, 2, "Ошибка датчика заполнения кэшбокса"},
    {49, 3, "Ошибка датчика приема монет"},
    {49, 4, "Ошибка датчика заполнения чаши для выдачи"},
    {49, anyExtra, "Ошибка оптического датчика"},
    {50, anyExtra, "Необходима замена батареи, разряжена"},
    // The door text is spelt "подьемника", unlike the motor texts; both are kept as operators
    // see them.
    {51, 1, "Открыта дверь в устройстве поштучной подачи"},
    {51, 2, "Открыта дверь подьемника"},
    {51, anyExtra, "Открыта дверь"},
    {53, anyExtra, "Ошибка часов реального времени"},
    {54, anyExtra, "Ошибка прошивки"},
    {55, anyExtra, "Ошибка инициализации"},
};

} // namespace

namespace CcTalk {

// Module number, error code.
ReqErrorStatus::ReqErrorStatus() : Request(Header::reqErrorStatus, QByteArray(), AnswerLength::exactly(2)) {}

ReqErrorStatusResp::ReqErrorStatusResp(const Response& response) : Response(response) {}

bool ReqErrorStatusResp::hasError() const
{
    return getByte(0) != 0 && getByte(1) != 0;
}

bool ReqErrorStatusResp::isNeedSelfTest() const
{
    return getByte(0) == 255 && getByte(1) == 255;
}

bool ReqErrorStatusResp::isFatal() const
{
    const unsigned char code = getByte(1);
    return code == 101 || code == 252;
}

QString ReqErrorStatusResp::getError() const
{
    const unsigned int module = getByte(0);
    switch (getByte(1)) {
    case 1:
        return QStringLiteral("Хоппер %1 пустой").arg(module);
    case 2:
        return QStringLiteral("Хоппер %1, заклинивание").arg(module);
    case 3:
        return QStringLiteral("Хоппер %1, мошенничество").arg(module);
    case 4:
        return QStringLiteral("Хоппер %1 неисправен").arg(module);
    case 101:
        return QStringLiteral("Приемник монет, заклинивание");
    case 102:
        return QStringLiteral("Приемник монет, мошенничество");
    case 103:
        return QStringLiteral("Приемник монет, многократная оптическая неисправность");
    case 104:
        return QStringLiteral("Приемник монет неисправен");
    case 251:
        return QStringLiteral("Кэшбокс заполнен");
    case 252:
        return QStringLiteral("Кэшбокс отсутствует");
    default:
        return QStringLiteral("Неизвестная ошибка");
    }
}

bool ReqErrorStatusResp::isDeviceHasError(DeviceType type, int number) const
{
    // Deliberately narrower than the messages: an empty hopper or a fraud attempt
    // does not put a unit out of service.
    const unsigned char code = getByte(1);
    switch (type) {
    case CoinAcceptor:
        return code == 101 || code == 103 || code == 104;
    case Cashbox:
        return code == 251 || code == 252;
    default:
        return (code == 2 || code == 4) && int(getByte(0)) == number;
    }
}

// Fault code, extra information.
Selfcheck::Selfcheck() : Request(Header::performSelfcheck, QByteArray(), AnswerLength::exactly(2)) {}

SelfcheckResp::SelfcheckResp(const Response& response) : Response(response) {}

bool SelfcheckResp::hasError() const
{
    return getByte(0) != 0;
}

bool SelfcheckResp::isFatal() const
{
    return getByte(0) == 51;
}

bool SelfcheckResp::isDelayedError() const
{
    return getByte(0) == 35;
}

QString SelfcheckResp::getError() const
{
    const unsigned char code = getByte(0);
    const unsigned char extra = getByte(1);
    // The hopper's number follows these two texts; the output sensor's text takes only its
    // last digit, unlike the level sensor's.
    if (code == 26)
        return QString::fromUtf8("Ошибка датчика выдачи хоппера ") + QString::number(extra % 10);
    if (code == 27)
        return QString::fromUtf8("Ошибка датчика уровня хоппера ") + QString::number(extra);
    for (const FaultText& row : selfcheckTexts) {
        if (row.code == code && (row.extra == anyExtra || row.extra == extra))
            return QString::fromUtf8(row.text);
    }
    return QString::fromUtf8(unknownFault);
}

} // namespace CcTalk
