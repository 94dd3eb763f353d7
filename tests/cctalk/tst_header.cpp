#include "cctalk/header.h"
#include "cctalk/package.h"
#include "support/columns.h"

#include <QMetaEnum>
#include <QSet>
#include <QtTest>

#include <type_traits>

// Header codes are compared as signed integers: without a fixed underlying type the
// enumeration still promotes to int.
static_assert(std::is_same<decltype(+CcTalk::Header::factorySetupAndTest), int>::value,
              "header codes promote to signed integers");

namespace {

struct Key
{
    const char* name;
    int value;
};

// The ccTalk header table in ascending order of value, which is also the order of
// declaration.
const Key headerTable[] = {
    {"answer", 0},
    {"reset", 1},
    {"reqCommsStatusVars", 2},
    {"clearCommsStatusVars", 3},
    {"reqCommsRevision", 4},
    {"NAK", 5},
    {"BUSY", 6},
    {"setChangeAlgorithm", 80},
    {"reqCoinsInByType", 82},
    {"reqControllerManifest", 84},
    {"dispenseHopperPattern", 85},
    {"reqAuditCounter", 86},
    {"clearAuditCounter", 87},
    {"expansionHeader1", 100},
    {"expansionHeader2", 101},
    {"expansionHeader3", 102},
    {"expansionHeader4", 103},
    {"reqServiceStatus", 104},
    {"dataStream", 105},
    {"reqEscrowStatus", 106},
    {"operateEscrow", 107},
    {"reqEncrypMonetaryId", 108},
    {"reqEncrypHopperStatus", 109},
    {"switchEncryptionKey", 110},
    {"reqEncryptionSupport", 111},
    {"readEncrypEvents", 112},
    {"switchBaudRate", 113},
    {"reqUSBId", 114},
    {"reqRealTimeClock", 115},
    {"modRealTimeClock", 116},
    {"reqCashboxValue", 117},
    {"modCashboxValue", 118},
    {"reqHopperBalance", 119},
    {"modHopperBalance", 120},
    {"purgeHopper", 121},
    {"reqErrorStatus", 122},
    {"reqActivityReg", 123},
    {"verifyMoneyOut", 124},
    {"payMoneyOut", 125},
    {"clearMoneyCounters", 126},
    {"reqMoneyOut", 127},
    {"reqMoneyIn", 128},
    {"readBarcodeData", 129},
    {"reqIndexedHopperDispenseCount", 130},
    {"reqHopperCoinValue", 131},
    {"emergencyStopValue", 132},
    {"reqHopperPollingValue", 133},
    {"dispenseHopperValue", 134},
    {"setAcceptLimit", 135},
    {"storeEncryptionCode", 136},
    {"switchEncryptionCode", 137},
    {"finishFirmwareUpgrade", 138},
    {"beginFirmwareUpgrade", 139},
    {"uploadFirmware", 140},
    {"reqFirmwareUpgradeCapability", 141},
    {"finishBillTableUpgrade", 142},
    {"beginBillTableUpgrade", 143},
    {"uploadBillTables", 144},
    {"reqCurrencyRevision", 145},
    {"operateBidirectionalMotors", 146},
    {"performStackerCycle", 147},
    {"readOptoVoltages", 148},
    {"reqIndividualErrorCounter", 149},
    {"reqIndividualAcceptCounter", 150},
    {"testLamps", 151},
    {"reqBillOperatingMode", 152},
    {"modBillOperatingMode", 153},
    {"routeBill", 154},
    {"reqBillPosition", 155},
    {"reqCountryScalingFactor", 156},
    {"reqBillId", 157},
    {"modBillId", 158},
    {"readBufferedBillEvents", 159},
    {"reqCipherKey", 160},
    {"pumpRNG", 161},
    {"modInhibitAndOverrideRegs", 162},
    {"testHopper", 163},
    {"enableHopper", 164},
    {"modVarSet", 165},
    {"reqHopperStatus", 166},
    {"dispenseHopperCoins", 167},
    {"reqHopperDispenseCount", 168},
    {"reqAddressMode", 169},
    {"reqBaseYear", 170},
    {"reqHopperCoin", 171},
    {"emergencyStop", 172},
    {"reqThermistorReading", 173},
    {"reqPayoutFloat", 174},
    {"modPayoutFloat", 175},
    {"reqAlarmCounter", 176},
    {"handheldFunction", 177},
    {"reqBankSelect", 178},
    {"modBankSelect", 179},
    {"reqSecuritySetting", 180},
    {"modSecuritySetting", 181},
    {"downloadCalibrationInfo", 182},
    {"uploadWindowData", 183},
    {"reqCoinId", 184},
    {"modCoinId", 185},
    {"reqPayoutCapacity", 186},
    {"modPayoutCapacity", 187},
    {"reqDefaultSorterPath", 188},
    {"modDefaultSorterPath", 189},
    {"keypadControl", 191},
    {"reqBuildCode", 192},
    {"reqFraudCounter", 193},
    {"reqRejectCounter", 194},
    {"reqLastModificationDate", 195},
    {"reqCreationDate", 196},
    {"calculateROMChecksum", 197},
    {"countersToEEPROM", 198},
    {"configurationToEEPROM", 199},
    {"aCMIUnencryptedProductId", 200},
    {"reqTeachStatus", 201},
    {"teachModeControl", 202},
    {"displayControl", 203},
    {"meterControl", 204},
    {"reqPayoutAbsoluteCount", 207},
    {"modPayoutAbsoluteCount", 208},
    {"reqSorterPaths", 209},
    {"modSorterPaths", 210},
    {"powerManagementControl", 211},
    {"reqCoinPosition", 212},
    {"reqOptionFlags", 213},
    {"writeDataBlock", 214},
    {"readDataBlock", 215},
    {"reqDataStorageAvailability", 216},
    {"reqPayoutHighLowStatus", 217},
    {"enterPINNumber", 218},
    {"enterNewPINNumber", 219},
    {"aCMIEncrypData", 220},
    {"reqSorterOverrideStatus", 221},
    {"modSorterOverrideStatus", 222},
    {"modEncrypInhibitAndOverrideRegs", 223},
    {"reqEncrypProductId", 224},
    {"reqAcceptCounter", 225},
    {"reqInsertionCounter", 226},
    {"reqMasterInhibitStatus", 227},
    {"modMasterInhibitStatus", 228},
    {"readBufferedCreditOrErrorCodes", 229},
    {"reqInhibitStatus", 230},
    {"modInhibitStatus", 231},
    {"performSelfcheck", 232},
    {"latchOutputLines", 233},
    {"sendDHPublicKey", 234},
    {"readDHPublicKey", 235},
    {"readOptoStates", 236},
    {"readInputLines", 237},
    {"testOutputLines", 238},
    {"operateMotors", 239},
    {"testSolenoids", 240},
    {"reqSoftwareRevision", 241},
    {"reqSerialNumber", 242},
    {"reqDatabaseVersion", 243},
    {"reqProductCode", 244},
    {"reqEquipmentCategoryId", 245},
    {"reqManufacturerId", 246},
    {"reqVarSet", 247},
    {"reqStatus", 248},
    {"reqPollingPriority", 249},
    {"addressRandom", 250},
    {"addressChange", 251},
    {"addressClash", 252},
    {"addressPoll", 253},
    {"simplePoll", 254},
    {"factorySetupAndTest", 255},
};

const int unkeyedTable[] = {7,  8,  9,  10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22,  23,  24,
                            25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40,  41,  42,
                            43, 44, 45, 46, 47, 48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58,  59,  60,
                            61, 62, 63, 64, 65, 66, 67, 68, 69, 70, 71, 72, 73, 74, 75, 76,  77,  78,
                            79, 81, 83, 88, 89, 90, 91, 92, 93, 94, 95, 96, 97, 98, 99, 190, 205, 206};

QMetaEnum typeEnum()
{
    const QMetaObject& mo = CcTalk::Header::staticMetaObject;
    return mo.enumerator(mo.indexOfEnumerator("Type"));
}

QString nameOf(int header)
{
    return CcTalk::Request(CcTalk::Header::Type(header), QByteArray()).getName();
}

} // namespace

class TestHeader : public QObject
{
    Q_OBJECT
private slots:
    void metaEnumeration()
    {
        const QMetaEnum e = typeEnum();
        QVERIFY(e.isValid());
        QCOMPARE(QByteArray(e.name()), QByteArray("Type"));
        QVERIFY(!e.isFlag());
        QCOMPARE(e.keyCount(), 166);
        QCOMPARE(int(sizeof headerTable / sizeof headerTable[0]), 166);
        QCOMPARE(QByteArray(CcTalk::Header::staticMetaObject.className()), QByteArray("CcTalk::Header"));
        CcTalk::Header object;
        QVERIFY(object.qt_metacast("CcTalk::Header") != nullptr);
    }

    void keys_data()
    {
        testsupport::columns<int, QByteArray, int>("index", "key", "value");
        int i = 0;
        for (const Key& k : headerTable) {
            QTest::newRow(k.name) << i << QByteArray(k.name) << k.value;
            ++i;
        }
    }

    void keys()
    {
        QFETCH(int, index);
        QFETCH(QByteArray, key);
        QFETCH(int, value);
        const QMetaEnum e = typeEnum();
        QCOMPARE(QByteArray(e.key(index)), key);
        QCOMPARE(e.value(index), value);
        bool ok = false;
        QCOMPARE(e.keyToValue(key.constData(), &ok), value);
        QVERIFY(ok);
        QCOMPARE(QByteArray(e.valueToKey(value)), key);
        QVERIFY(value >= 0 && value <= 255);
        QCOMPARE(nameOf(value), QStringLiteral("%1 (%2)").arg(QString::fromLatin1(key)).arg(value));
    }

    void unkeyedValues_data()
    {
        QTest::addColumn<int>("value");
        for (int v : unkeyedTable)
            QTest::newRow(QByteArray::number(v).constData()) << v;
    }

    void unkeyedValues()
    {
        QFETCH(int, value);
        QCOMPARE(typeEnum().valueToKey(value), static_cast<const char*>(nullptr));
        QCOMPARE(nameOf(value), QStringLiteral(" (%1)").arg(value));
    }

    void everyByteIsKeyedOrListed()
    {
        QSet<int> known;
        for (const Key& k : headerTable)
            known.insert(k.value);
        for (int v : unkeyedTable) {
            QVERIFY(!known.contains(v));
            known.insert(v);
        }
        QCOMPARE(known.size(), 256);
    }

    void namesOfExamples_data()
    {
        testsupport::columns<int, QString>("header", "name");
        const struct
        {
            const char* row;
            int header;
            const char* name;
        } examples[] = {
            {"simple poll", 254, "simplePoll (254)"},
            {"answer", 0, "answer (0)"},
            {"NAK", 5, "NAK (5)"},
            {"BUSY", 6, "BUSY (6)"},
            {"7", 7, " (7)"},
            {"81", 81, " (81)"},
            {"190", 190, " (190)"},
            {"205", 205, " (205)"},
            {"Encryp", 108, "reqEncrypMonetaryId (108)"},
            {"small a", 200, "aCMIUnencryptedProductId (200)"},
            {"USB", 114, "reqUSBId (114)"},
            {"DH", 235, "readDHPublicKey (235)"},
        };
        for (const auto& e : examples)
            QTest::newRow(e.row) << e.header << QString::fromLatin1(e.name);
    }

    void namesOfExamples()
    {
        QFETCH(int, header);
        QFETCH(QString, name);
        QCOMPARE(nameOf(header), name);
    }

    // Replies carry answer, NAK or BUSY; the header byte of a received frame is read
    // unsigned and matches the signed enumeration for every value.
    void receivedHeaderBytes_data()
    {
        testsupport::columns<QByteArray, int, QString, bool, bool>("frame", "header", "name", "nak", "busy");
        QTest::newRow("answer") << QByteArray::fromHex("01003700c8") << 0 << QStringLiteral("answer (0)")
                                << false << false;
        QTest::newRow("NAK") << QByteArray::fromHex("01003705c3") << 5 << QStringLiteral("NAK (5)") << true
                             << false;
        QTest::newRow("BUSY") << QByteArray::fromHex("01003706c2") << 6 << QStringLiteral("BUSY (6)") << false
                              << true;
        QTest::newRow("255") << QByteArray::fromHex("370001ffc9") << 255
                             << QStringLiteral("factorySetupAndTest (255)") << false << false;
        QTest::newRow("254") << QByteArray::fromHex("370001feca") << 254 << QStringLiteral("simplePoll (254)")
                             << false << false;
        QTest::newRow("128") << QByteArray::fromHex("3700018048") << 128 << QStringLiteral("reqMoneyIn (128)")
                             << false << false;
    }

    void receivedHeaderBytes()
    {
        QFETCH(QByteArray, frame);
        QFETCH(int, header);
        QFETCH(QString, name);
        QFETCH(bool, nak);
        QFETCH(bool, busy);
        CcTalk::Response r;
        r.addRawData(frame);
        if (frame.at(2) == 1) {
            QVERIFY(!r.isValid());
            r.setRawData(frame);
        } else {
            QVERIFY(r.isValid());
        }
        QCOMPARE(int(r.getHeader()), header);
        QCOMPARE(r.getName(), name);
        QCOMPARE(r.isNAK(), nak);
        QCOMPARE(r.isBUSY(), busy);
    }
};

QTEST_APPLESS_MAIN(TestHeader)
#include "tst_header.moc"
