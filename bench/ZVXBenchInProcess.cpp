// In-process work: signing tokens, reading a page of messages, merging message lists. The library's
// own functions are timed, never a copy of them.

#include "ZVXBench.h"
#include "ZVXBenchChatList.h"
#include "ZVXBenchComponents.h"
#include "ZVXBenchMaps.h"
#include "ZVXConversation.h"
#include "ZVXJSON.h"
#include "ZVXJWT.h"
#include "ZVXPreviews.h"
#include "ZVXURLSession.h"
#include "Zuvero.h"
#include "ZuveroConnection_p.h"
#include "ZuveroData.h"

#include <QBuffer>
#include <QHash>
#include <QImageWriter>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMessageAuthenticationCode>
#include <QRandomGenerator>
#include <QSet>

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <random>

namespace ZVXBench {

namespace {

constexpr int Tokens = 1000;
constexpr int Pages = 20;

// Keeps results alive so the optimiser cannot drop the work.
volatile qsizetype sink = 0;

QString keyOf(const ZuveroChatMessagePtr &message)
{
    return message->uuid().isNull() ? QStringLiteral("") : message->uuid();
}

QString uuidFrom(QRandomGenerator &random)
{
    quint32 words[4];
    random.fillRange(words);
    return QUuid::fromRfc4122(QByteArrayView(reinterpret_cast<const char *>(words), 16))
        .toString(QUuid::WithoutBraces);
}

const QDateTime start = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC);

// A cached conversation: \a count messages a second apart, in date order.
ZuveroChatMessageList cachedMessages(int count)
{
    QRandomGenerator random{quint32(count)};
    ZuveroChatMessageList messages;
    messages.reserve(count);
    for (int i = 0; i < count; ++i) {
        auto message = ZuveroChatMessage::init();
        message->setUuid(uuidFrom(random));
        message->setSender(QStringLiteral("user"));
        message->setText(QStringLiteral("message %1").arg(i));
        message->setDate(start.addSecs(i));
        messages.append(message);
    }
    return messages;
}

// A download of \a count messages: half are newer copies of cached ones, half new, some dated
// like cached ones and some like the new one before them. A shorter batch is a prefix of a longer.
ZuveroChatMessageList newMessages(const ZuveroChatMessageList &cached, int count)
{
    QRandomGenerator random(quint32(cached.size() * 31));
    ZuveroChatMessageList fresh;
    fresh.reserve(count);
    for (int i = 0; i < count; ++i) {
        auto message = ZuveroChatMessage::init();
        const int at = int(random.bounded(int(cached.size())));
        if (i % 2 == 0) {
            message->setUuid(cached.at(at)->uuid());
            message->setDate(cached.at(at)->date());
        } else {
            message->setUuid(uuidFrom(random));
            message->setDate(i % 3 == 0 && !fresh.isEmpty() ? fresh.last()->date()
                                                            : start.addSecs(at));
        }
        message->setSender(QStringLiteral("agent"));
        message->setText(QStringLiteral("new %1").arg(i));
        fresh.append(message);
    }
    return fresh;
}

// The reply as the connection hands it over when its checks pass.
ZuveroChatMessageList libraryPage(const ZVXURLSessionResult &result)
{
    const std::optional<QJsonValue> json
        = ZuveroConnectionPrivate::handleReceivedJSON(result, [](const ZuveroError &) {});
    return json ? ZuveroConnectionPrivate::messagesFromReply(json->toObject())
                : ZuveroChatMessageList();
}

// The page read as a variant tree, each entry without its nulls.
ZuveroChatMessageList variantPage(const QByteArray &page)
{
    ZuveroChatMessageList messages;
    const QVariant reply = ZVXJSON::parse(page).value_or(QVariant());
    for (const QVariant &entry : reply.toMap().value(QStringLiteral("messages")).toList()) {
        if (auto message
            = ZuveroChatMessage::initWithPropertyList(ZuveroSkipNSNullRecursively(entry)))
            messages.append(message);
    }
    return messages;
}

QString pageProblem(const QByteArray &page, const ZVXURLSessionResult &result)
{
    const ZuveroChatMessageList ours = libraryPage(result);
    const ZuveroChatMessageList reference = variantPage(page);
    const qsizetype entries
        = QJsonDocument::fromJson(page).object().value(QLatin1String("messages")).toArray().size();
    if (ours.isEmpty() || ours.size() != entries || reference.size() != entries)
        return QStringLiteral("page: %1 entries, the library read %2 messages, the variant "
                              "reading %3")
            .arg(entries)
            .arg(ours.size())
            .arg(reference.size());
    for (qsizetype i = 0; i < entries; ++i) {
        if (ours.at(i)->propertyList() != reference.at(i)->propertyList()
            || ours.at(i)->date() != reference.at(i)->date())
            return QStringLiteral("page: message %1 reads differently as JSON and as variants")
                .arg(i);
    }
    return {};
}

QString mergeProblem(const QString &data, const ZuveroChatMessageList &existing,
                     const ZuveroChatMessageList &fresh)
{
    const ZuveroChatMessageList ours = ZVXConversation::combineExistingMessages(existing, fresh);
    const ZuveroChatMessageList literal = literalCombine(existing, fresh);
    if (ours.size() == literal.size()
        && std::equal(ours.cbegin(), ours.cend(), literal.cbegin(), literal.cend()))
        return {};
    return QStringLiteral("merge %1: the library gives %2 messages, the literal rule %3%4")
        .arg(data)
        .arg(ours.size())
        .arg(literal.size())
        .arg(ours.size() == literal.size() ? QStringLiteral(", in another order") : QString());
}

// What a cell pays to find the preview of a picture it shows, beside decoding the picture again:
// twenty pictures the user sent, held by one connection's caches.
QList<Case> previewCases()
{
    constexpr int Pictures = 20;
    std::shared_ptr<Zuvero> zuvero(
        Zuvero::initWithApiKey(QStringLiteral("bench"), QStringLiteral("127.0.0.1:9"), {}));
    QList<ZuveroChatAttachmentPtr> attachments;
    QByteArray jpeg;
    QRandomGenerator random{7};
    for (int i = 0; i < Pictures; ++i) {
        QImage picture(320, 240, QImage::Format_RGB32);
        for (int y = 0; y < picture.height(); ++y) {
            auto *line = reinterpret_cast<quint32 *>(picture.scanLine(y));
            for (int x = 0; x < picture.width(); ++x)
                line[x] = 0xff000000u | (random.generate() & 0x3f3f3fu) | quint32(x * 0x10001);
        }
        jpeg.clear();
        QBuffer buffer(&jpeg);
        buffer.open(QIODevice::WriteOnly);
        QImageWriter(&buffer, "jpeg").write(picture);
        attachments << ZuveroChatAttachment::initWithImage(ZuveroImage::initWithRawData(jpeg));
    }
    ZuveroConnection *connection = zuvero->connection();
    for (const ZuveroChatAttachmentPtr &attachment : std::as_const(attachments))
        sink = connection->cachedAttachmentPreview(attachment) != nullptr;

    return {Case{QStringLiteral("preview: cached lookup"),
                 [=] {
                     for (const ZuveroChatAttachmentPtr &attachment : attachments)
                         sink
                             = zuvero->connection()->cachedAttachmentPreview(attachment) != nullptr;
                 },
                 Pictures},
            Case{QStringLiteral("preview: decode the same 320x240 JPEG"),
                 [=] { sink = ZVXPreviews::decodedPreview(jpeg)->image().width(); }}};
}

} // namespace

ZuveroChatMessageList literalCombine(const ZuveroChatMessageList &existing,
                                     const ZuveroChatMessageList &newMessages)
{
    QSet<QString> recorded;
    ZuveroChatMessageList result;
    QHash<const ZuveroChatMessage *, qsizetype> newPosition;
    for (qsizetype i = newMessages.size() - 1; i >= 0; --i) {
        recorded.insert(keyOf(newMessages.at(i)));
        result.prepend(newMessages.at(i));
        newPosition.insert(newMessages.at(i).get(), i);
    }
    for (qsizetype i = existing.size() - 1; i >= 0; --i) {
        const ZuveroChatMessagePtr &message = existing.at(i);
        const QString key = keyOf(message);
        if (recorded.contains(key))
            continue;
        const bool equalToNew
            = std::any_of(newMessages.cbegin(), newMessages.cend(),
                          [&](const ZuveroChatMessagePtr &n) { return message->isEqual(*n); });
        recorded.insert(key);
        if (!equalToNew)
            result.prepend(message);
    }
    // -1 ascending, 1 descending, 0 the same, as the rule's comparator answers.
    const auto compare = [&](const ZuveroChatMessagePtr &a, const ZuveroChatMessagePtr &b) {
        if (a->date() != b->date())
            return a->date() < b->date() ? -1 : 1;
        const auto aNew = newPosition.constFind(a.get()), bNew = newPosition.constFind(b.get());
        if (aNew != newPosition.cend() && bNew != newPosition.cend())
            return *aNew < *bNew ? -1 : (*aNew > *bNew ? 1 : 0);
        if (aNew == newPosition.cend() && bNew != newPosition.cend())
            return -1;
        return 1;
    };
    std::stable_sort(result.begin(), result.end(),
                     [&](const ZuveroChatMessagePtr &a, const ZuveroChatMessagePtr &b) {
                         return compare(a, b) < 0;
                     });
    return result;
}

double quantile(QList<double> sample, double q)
{
    if (sample.isEmpty())
        return 0;
    std::sort(sample.begin(), sample.end());
    const double position = q * double(sample.size() - 1);
    const qsizetype below = qsizetype(position);
    if (below + 1 >= sample.size())
        return sample.last();
    const double fraction = position - double(below);
    return sample.at(below) * (1 - fraction) + sample.at(below + 1) * fraction;
}

double median(QList<double> sample)
{
    return quantile(std::move(sample), 0.5);
}

InProcess::InProcess(const QByteArray &page, bool goalsOnly)
    : m_page(page)
{
    if (!goalsOnly) {
        // The claims the facade signs, and the bytes its signature covers.
        const QByteArray secret = QByteArray::fromHex("7a757665726f2d7365637265742d3432");
        const QVariantMap claims{
            {QStringLiteral("apiKey"), QString::fromLatin1(ZuveroSHA256(secret)->toHex())},
            {QStringLiteral("installationId"),
             QStringLiteral("3F2504E0-4F89-41D3-9A0C-0305E82C3301")},
            {QStringLiteral("userId"), QStringLiteral("user-42")},
            {QStringLiteral("userName"), QStringLiteral("Ana")}};
        const QString token = *ZVXJWT::initWithPayload(claims)->signedTokenWithSecret(secret);
        const QByteArray signingInput = token.section(QLatin1Char('.'), 0, 1).toLatin1();

        m_cases << Case{
            QStringLiteral("token: sign"),
            [=] {
                for (int i = 0; i < Tokens; ++i)
                    sink = ZVXJWT::initWithPayload(claims)->signedTokenWithSecret(secret)->size();
            },
            Tokens};
        m_cases << Case{QStringLiteral("token: HMAC-SHA256, Qt"),
                        [=] {
                            for (int i = 0; i < Tokens; ++i)
                                sink = QMessageAuthenticationCode::hash(signingInput, secret,
                                                                        QCryptographicHash::Sha256)
                                           .size();
                        },
                        Tokens};
        m_cases << Case{
            QStringLiteral("token: HMAC-SHA256, OpenSSL"),
            [=] {
                unsigned char mac[EVP_MAX_MD_SIZE];
                unsigned int length = 0;
                for (int i = 0; i < Tokens; ++i) {
                    HMAC(EVP_sha256(), secret.constData(), int(secret.size()),
                         reinterpret_cast<const unsigned char *>(signingInput.constData()),
                         size_t(signingInput.size()), mac, &length);
                    sink = length;
                }
            },
            Tokens};
    }

    // A page of 50 messages: what the connection does with the reply, beside QJsonDocument alone.
    ZVXURLSessionResult result;
    result.data = page;
    result.response = ZVXURLResponse{QUrl(), 200, {}};
    m_cases << Case{QStringLiteral("page: library (checks, parse, build)"),
                    [=] {
                        for (int i = 0; i < Pages; ++i)
                            sink = libraryPage(result).size();
                    },
                    Pages, true};
    m_cases << Case{QStringLiteral("page: QJsonDocument::fromJson"),
                    [=] {
                        for (int i = 0; i < Pages; ++i)
                            sink = QJsonDocument::fromJson(page).object().size();
                    },
                    Pages, true};

    // A large cached conversation with a usual download, in date order and out of it; and one
    // cached set with a usual and a large download, so that only the batch grows.
    const ZuveroChatMessageList large = cachedMessages(100000);
    const ZuveroChatMessageList largeNew = newMessages(large, 50);
    const ZuveroChatMessageList cached = cachedMessages(10000);
    const ZuveroChatMessageList manyNew = newMessages(cached, 1000);
    const ZuveroChatMessageList fewNew = manyNew.mid(0, 50);
    m_cases << Case{
        QStringLiteral("merge 100000 + 50"),
        [=] { sink = ZVXConversation::combineExistingMessages(large, largeNew).size(); }, 100000,
        true};
    ZuveroChatMessageList shuffled;
    if (!goalsOnly) {
        shuffled = large;
        std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(42));
        m_cases << Case{
            QStringLiteral("merge 100000 + 50, out of order"),
            [=] { sink = ZVXConversation::combineExistingMessages(shuffled, largeNew).size(); },
            100000};
    }
    m_cases << Case{QStringLiteral("merge 10000 + 50"),
                    [=] { sink = ZVXConversation::combineExistingMessages(cached, fewNew).size(); },
                    10000, true};
    m_cases << Case{
        QStringLiteral("merge 10000 + 1000"),
        [=] { sink = ZVXConversation::combineExistingMessages(cached, manyNew).size(); }, 10000,
        true};

    if (!goalsOnly)
        m_cases << previewCases() << mapCases() << componentCases() << chatRowCases();

    m_mergeProblems = [=] {
        QStringList problems;
        problems << mergeProblem(QStringLiteral("100000 + 50"), large, largeNew);
        if (!shuffled.isEmpty())
            problems << mergeProblem(QStringLiteral("100000 + 50, out of order"), shuffled,
                                     largeNew);
        problems << mergeProblem(QStringLiteral("10000 + 50"), cached, fewNew);
        problems << mergeProblem(QStringLiteral("10000 + 1000"), cached, manyNew);
        problems << pageProblem(page, result);
        problems.removeAll(QString());
        return problems;
    };
}

QStringList InProcess::problems() const
{
    return m_mergeProblems();
}

QString formatted(double value, const QString &unit)
{
    if (unit == QLatin1String("ms"))
        return value >= 0.1 ? QStringLiteral("%1 ms").arg(value, 0, 'f', value < 10 ? 2 : 1)
                            : QStringLiteral("%1 us").arg(value * 1000, 0, 'f', 2);
    return QStringLiteral("%1 %2").arg(value, 0, 'f', value < 100 ? 1 : 0).arg(unit);
}

Row compareRuns(const QString &name, const Runs &measured, const Runs &baseline,
                const QString &unit, double goal)
{
    QList<double> ratios;
    for (qsizetype i = 0; i < std::min(measured.size(), baseline.size()); ++i) {
        if (baseline.at(i) > 0)
            ratios << measured.at(i) / baseline.at(i);
    }
    const double ratio = median(ratios);
    return Row{name,
               formatted(median(measured), unit),
               formatted(median(baseline), unit),
               ratio,
               ratios.size() > 1 ? QStringLiteral("%1-%2")
                                       .arg(quantile(ratios, 0.25), 0, 'f', 2)
                                       .arg(quantile(ratios, 0.75), 0, 'f', 2)
                                 : QString(),
               goal > 0 ? QStringLiteral("<= %1x").arg(goal) : QString(),
               goal > 0 ? std::optional<bool>(ratio <= goal) : std::nullopt};
}

Row singleRuns(const QString &name, const Runs &runs, const QString &unit)
{
    return Row{name,
               formatted(median(runs), unit),
               QString(),
               0,
               runs.size() > 1
                   ? formatted(quantile(runs, 0.25), unit).section(QLatin1Char(' '), 0, 0)
                       + QLatin1Char('-') + formatted(quantile(runs, 0.75), unit)
                   : QString(),
               QString(),
               std::nullopt};
}

} // namespace ZVXBench
