#include "ZVXLogCapture.h"
#include "ZuveroData_p.h"
#include "ZuveroException.h"

#include <QTemporaryFile>
#include <QTest>

using namespace Qt::StringLiterals;

using Bytes = std::optional<QByteArray>;
Q_DECLARE_METATYPE(Bytes)

namespace {
QByteArray hex(const char *text)
{
    return QByteArray::fromHex(text);
}
} // namespace

class TestZuveroData : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void hexDecoding_data();
    void hexDecoding();
    void hexEncoding();
    void base64URLDecoding_data();
    void base64URLDecoding();
    void base64URLRoundTrip();
    void base64Text();
    void sha256_data();
    void sha256();
    void hmac_data();
    void hmac();
    void nullInputsGiveNothing();
    void nullRemoval();
    void bytesInPlace();
    void randomDevice();
};

void TestZuveroData::hexDecoding_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<Bytes>("expected");

    const Bytes nothing;
    QTest::newRow("prefix, mixed case") << u"0x0A1b"_s << Bytes(hex("0a1b"));
    QTest::newRow("upper-case prefix") << u"0X0a1B"_s << Bytes(hex("0a1b"));
    QTest::newRow("leading blanks") << u" \t 0x0A1b"_s << Bytes(hex("0a1b"));
    QTest::newRow("blanks after prefix") << u"0x  0A1b"_s << Bytes(hex("0a1b"));
    QTest::newRow("odd length") << u"abc"_s << nothing;
    QTest::newRow("trailing blank counts") << u"0a1b "_s << nothing;
    QTest::newRow("empty") << QString() << Bytes(QByteArray());
    QTest::newRow("invalid pair is not decoded") << u"zz"_s << Bytes(hex("00"));
    QTest::newRow("decoding stops early") << u"0a1g2b"_s << Bytes(hex("0a0000"));
    QTest::newRow("not ASCII") << u"0aé1"_s << nothing;
}

void TestZuveroData::hexDecoding()
{
    QFETCH(QString, text);
    QFETCH(Bytes, expected);
    QCOMPARE(ZuveroDataWithHexString(text), expected);
    const bool ascii
        = std::all_of(text.cbegin(), text.cend(), [](QChar c) { return c.unicode() < 0x80; });
    if (ascii)
        QCOMPARE(ZuveroDataWithHexCString(text.toLatin1().constData()), expected);
}

void TestZuveroData::hexEncoding()
{
    const QByteArray dead = hex("dead");
    QCOMPARE(ZuveroHexStringFromData(dead), u"dead"_s);
    QCOMPARE(ZuveroUppercaseHexStringFromData(dead), u"DEAD"_s);
    QCOMPARE(ZuveroHexStringFromDataWithFormat(hex("00ff10"), "%02X"), u"00FF10"_s);
    QCOMPARE(ZuveroHexStringFromData(QByteArray()), u""_s);
    QVERIFY(!ZuveroHexStringFromDataWithFormat(std::nullopt, "%02x"));
}

void TestZuveroData::base64URLDecoding_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<Bytes>("expected");

    QTest::newRow("no padding needed") << u"YWJj"_s << Bytes(QByteArray("abc"));
    QTest::newRow("two missing") << u"YQ"_s << Bytes(QByteArray("a"));
    QTest::newRow("one missing") << u"YWI"_s << Bytes(QByteArray("ab"));
    QTest::newRow("padding given") << u"YQ=="_s << Bytes(QByteArray("a"));
    QTest::newRow("URL alphabet") << u"-_8"_s << Bytes(hex("fbff"));
    QTest::newRow("standard alphabet too") << u"+/8"_s << Bytes(hex("fbff"));
    QTest::newRow("stray white space") << u"YWJj ZGVm\t\r\n"_s << Bytes(QByteArray("abcdef"));
    QTest::newRow("length 1 mod 4") << u"YWJjZ"_s << Bytes();
    QTest::newRow("one character") << u"a"_s << Bytes();
    QTest::newRow("padding in the middle") << u"YQ==YQ=="_s << Bytes();
    QTest::newRow("empty") << QString() << Bytes(QByteArray());
}

void TestZuveroData::base64URLDecoding()
{
    QFETCH(QString, text);
    QFETCH(Bytes, expected);
    QCOMPARE(ZuveroDataFromBase64URL(text), expected);
}

void TestZuveroData::base64URLRoundTrip()
{
    const QList<QPair<QByteArray, int>> cases
        = {{hex("fb"), 2}, {hex("fbff"), 3}, {hex("fbffbf"), 4}, {QByteArray(), 0}};
    for (const auto &[bytes, length] : cases) {
        const std::optional<QString> text = ZuveroBase64URLWithData(bytes);
        QVERIFY(text);
        QCOMPARE(text->size(), length);
        QVERIFY(!text->contains(QLatin1Char('=')) && !text->contains(QLatin1Char('+'))
                && !text->contains(QLatin1Char('/')));
        QCOMPARE(ZuveroDataFromBase64URL(text), Bytes(bytes));
    }
    const QByteArray random = ZuveroRandomDataWithLength(1000);
    QCOMPARE(ZuveroDataFromBase64URL(ZuveroBase64URLWithData(random)), Bytes(random));
}

void TestZuveroData::base64Text()
{
    const QString text = u"héllo ✓"_s;
    QCOMPARE(decodeBase64String(ZuveroBase64URLWithData(text.toUtf8())), text);
    QVERIFY(!decodeBase64String(ZuveroBase64URLWithData(hex("fffe80"))));
    QVERIFY(!decodeBase64String(u"a"_s));
}

void TestZuveroData::sha256_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QByteArray>("digest");

    // FIPS 180-2, appendix B.1, and the empty input: the digest itself is OpenSSL's.
    QTest::newRow("empty")
        << QByteArray() << hex("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    QTest::newRow("abc") << QByteArray("abc")
                         << hex("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

void TestZuveroData::sha256()
{
    QFETCH(QByteArray, input);
    QFETCH(QByteArray, digest);
    QCOMPARE(ZuveroSHA256(input), Bytes(digest));
}

void TestZuveroData::hmac_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QByteArray>("sha256");
    QTest::addColumn<QByteArray>("sha512");

    // RFC 4231, test cases 2 and 6: the key told from the data, and a key longer than a block.
    // The MAC itself is OpenSSL's; these pin the digest, the argument order and the length.
    const QByteArray longKey(131, '\xaa');
    QTest::newRow("case 2")
        << QByteArray("Jefe") << QByteArray("what do ya want for nothing?")
        << hex("5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843")
        << hex("164b7a7bfcf819e2e395fbe73b56e0a387bd64222e831fd610270cd7ea250554"
               "9758bf75c05a994a6d034f65f8f0e6fdcaeab1a34d4a6b4b636e070a38bce737");
    QTest::newRow("case 6")
        << longKey << QByteArray("Test Using Larger Than Block-Size Key - Hash Key First")
        << hex("60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54")
        << hex("80b24263c7c1a3ebb71493c1dd7be8b49b46d1f41b4aeec1121b013783f8f352"
               "6b56d037e05f2598bd0fd2215d6a1e5295e64f73f63f0aec8b915a985d786598");
}

void TestZuveroData::hmac()
{
    QFETCH(QByteArray, key);
    QFETCH(QByteArray, data);
    QFETCH(QByteArray, sha256);
    QFETCH(QByteArray, sha512);
    QCOMPARE(ZuveroHMACSHA256(key, data), Bytes(sha256));
    QCOMPARE(ZuveroHMACSHA512(key, data), Bytes(sha512));
}

void TestZuveroData::nullInputsGiveNothing()
{
    QVERIFY(!ZuveroSHA256(std::nullopt));
    QVERIFY(!ZuveroHMACSHA256(std::nullopt, QByteArray("x")));
    QVERIFY(!ZuveroHMACSHA512(QByteArray("x"), std::nullopt));
    QVERIFY(!ZuveroDataWithHexCString(nullptr));
    QVERIFY(!ZuveroBase64URLWithData(std::nullopt));
    // Empty is not absent: it has a MAC and an encoding.
    QCOMPARE(ZuveroHMACSHA256(QByteArray(), QByteArray())->size(), 32);
    QCOMPARE(ZuveroBase64URLWithData(QByteArray()), u""_s);
}

void TestZuveroData::nullRemoval()
{
    const QVariant null = QVariant::fromValue(nullptr);
    const QVariantMap tree{{u"a"_s, null},
                           {u"b"_s, QVariantList{1, null, QVariantMap{{u"c"_s, null}}}}};
    const QVariantMap expected{{u"b"_s, QVariantList{1, QVariantMap()}}};
    QCOMPARE(ZuveroSkipNSNullRecursively(tree), QVariant(expected));
    QCOMPARE(tree.size(), 2); // the input is left alone

    const QVariantHash hash{{u"x"_s, null}, {u"y"_s, 2}};
    QCOMPARE(ZuveroSkipNSNullRecursively(hash), QVariant(QVariantHash{{u"y"_s, 2}}));
    QVERIFY(!ZuveroSkipNSNullRecursively(null).isValid());
    QVERIFY(!ZuveroSkipNSNull(null).isValid());
    QCOMPARE(ZuveroSkipNSNull(QVariant(5)), QVariant(5));
    QCOMPARE(ZuveroSkipNSNullRecursively(u"s"_s), QVariant(u"s"_s));
}

void TestZuveroData::bytesInPlace()
{
    QCOMPARE(ZuveroReversedData(hex("010203")), Bytes(hex("030201")));
    QByteArray even = hex("01020304");
    ZuveroDataReverse(even);
    QCOMPARE(even, hex("04030201"));

    QVariant boxed(QByteArray("key"));
    QVERIFY(ZuveroDataClear(&boxed));
    QCOMPARE(boxed.toByteArray(), QByteArray(3, '\0'));
    QVariant text(u"key"_s);
    QVERIFY(!ZuveroDataClear(&text));

    unsigned char buffer[4] = {1, 2, 3, 4};
    QCOMPARE(ZuveroSecureMemset(buffer, 0xab, 3), static_cast<void *>(buffer));
    QCOMPARE(QByteArray(reinterpret_cast<char *>(buffer), 4), hex("ababab04"));
    char password[] = "hunter2";
    ZuveroSecureClearCString(password);
    QCOMPARE(QByteArray(password, sizeof password), QByteArray(sizeof password, '\0'));
}

void TestZuveroData::randomDevice()
{
    ZVXLogCapture log;
    ZVXSetRandomDevicePath("/nonexistent/urandom");
    try {
        ZuveroRandomDataWithLength(8);
        QFAIL("a missing random device must raise");
    } catch (const ZuveroException &e) {
        QCOMPARE(e.name(), u"Failed to open /dev/urandom"_s);
        QCOMPARE(e.reason(), u"fopen('/dev/urandom', 'r') failed."_s);
    }
    QCOMPARE(log.lines(), QStringList{u"ZVX: ZVXData: cannot fopen /dev/urandom"_s});

    // A device that runs dry must not yield predictable bytes.
    QTemporaryFile empty;
    QVERIFY(empty.open());
    const QByteArray path = empty.fileName().toLocal8Bit();
    ZVXSetRandomDevicePath(path.constData());
    QVERIFY_THROWS_EXCEPTION(ZuveroException, ZuveroCreateRandomBytesOfLength(8));
    ZVXSetRandomDevicePath(nullptr);
    QCOMPARE(ZuveroRandomDataWithLength(0).size(), 0);
    QVERIFY(ZuveroRandomDataWithLength(32) != ZuveroRandomDataWithLength(32));
}

QTEST_GUILESS_MAIN(TestZuveroData)
#include "tst_zuverodata.moc"
