#include "cctalk/faults.h"

#include "host/qtcompat.h"

namespace CcTalk {

ReqErrorStatus::ReqErrorStatus() : Request(Header::reqErrorStatus, QByteArray()) {}

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

Selfcheck::Selfcheck() : Request(Header::performSelfcheck, QByteArray()) {}

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
    const unsigned int extra = getByte(1);
    switch (getByte(0)) {
    case 1:
        return QStringLiteral("Ошибка EEPROM приемника монет");
    case 2:
        if (extra == 6 || extra == 8)
            return QStringLiteral("Ошибка датчика монет в устройстве поштучной подачи");
        if (extra == 7 || extra == 9)
            return QStringLiteral("Ошибка датчика монет в устройстве возврата");
        return QStringLiteral("Ошибка магнитного датчика монет");
    case 3:
        return QStringLiteral("Ошибка датчика валидации");
    case 8:
        return QStringLiteral("Ошибка на выходе сортировщика, блокировка");
    case 9:
        return QStringLiteral("Ошибка NVRAM");
    case 19:
        return QStringLiteral("Ошибка механизма возврата монет");
    case 22:
        return QStringLiteral("Ошибка датчика температуры");
    case 23:
        switch (extra) {
        case 1:
            return QStringLiteral("Неисправен мотор в устройстве поштучной подачи, заклинивание");
        case 2:
            return QStringLiteral("Неисправен мотор подъемника, заклинивание");
        case 3:
            return QStringLiteral("Неисправен мотор возврата");
        case 4:
            return QStringLiteral("Неисправен мотор в устройстве поштучной подачи");
        case 5:
            return QStringLiteral("Неисправен мотор подъемника");
        case 6:
            return QStringLiteral("Неисправен мотор в устройстве поштучной подачи, блокировка датчика");
        case 7:
            return QStringLiteral("Неисправен мотор подъемника, блокировка датчика");
        case 16:
            return QStringLiteral("Неисправен ремень в устройстве поштучной подачи");
        case 17:
            return QStringLiteral("Неисправен ремень подъемника");
        default:
            return QStringLiteral("Неисправен мотор выдачи монет");
        }
    case 26:
        // Only the last digit of the hopper number, unlike the level sensor below.
        return QStringLiteral("Ошибка датчика выдачи хоппера ") + QString::number(extra % 10);
    case 27:
        return QStringLiteral("Ошибка датчика уровня хоппера ") + QString::number(extra);
    case 33:
        return QStringLiteral("Ошибка входного лотка монет");
    case 35:
        if (extra == 2)
            return QStringLiteral("Приемник монет неисправен");
        return QStringLiteral("Приемник монет, заклинивание");
    case 40:
        return QStringLiteral("Ошибка RAM");
    case 48:
        switch (extra) {
        case 1:
            return QStringLiteral("Отсутствует кэшбокс");
        case 2:
            return QStringLiteral("Отсутствует панель с хопперами");
        case 3:
            return QStringLiteral("Отсутствуют хопперы");
        case 4:
            return QStringLiteral("ID хоппера не соответствует");
        case 5:
            return QStringLiteral("Отсутствует приемник монет");
        default:
            return QStringLiteral("Модуль не отвечает");
        }
    case 49:
        switch (extra) {
        case 2:
            return QStringLiteral("Ошибка датчика заполнения кэшбокса");
        case 3:
            return QStringLiteral("Ошибка датчика приема монет");
        case 4:
            return QStringLiteral("Ошибка датчика заполнения чаши для выдачи");
        default:
            return QStringLiteral("Ошибка оптического датчика");
        }
    case 50:
        return QStringLiteral("Необходима замена батареи, разряжена");
    case 51:
        // The door text is spelt "подьемника", unlike the motor texts; both are kept as operators see them.
        if (extra == 1)
            return QStringLiteral("Открыта дверь в устройстве поштучной подачи");
        if (extra == 2)
            return QStringLiteral("Открыта дверь подьемника");
        return QStringLiteral("Открыта дверь");
    case 53:
        return QStringLiteral("Ошибка часов реального времени");
    case 54:
        return QStringLiteral("Ошибка прошивки");
    case 55:
        return QStringLiteral("Ошибка инициализации");
    default:
        return QStringLiteral("Неизвестная ошибка");
    }
}

} // namespace CcTalk
