// In-process work: signing tokens, reading a page of messages, merging message lists.

#include "ZVXBench.h"
#include "ZVXConversation.h"
#include "ZVXJSON.h"
#include "ZVXJWT.h"
#include "ZVXURLSession.h"
#include "ZuveroConnection_p.h"
#include "ZuveroData.h"

#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMessageAuthenticationCode>
#include <QRandomGenerator>
#include <QSet>

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>

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

// What the connection does with a listing once its checks pass.
ZuveroChatMessageList buildMessages(const QVariant &json)
{
    const QVariantMap reply = json.toMap();
    ZuveroChatMessageList messages;
    const QVariant list = ZuveroSkipNSNullRecursively(reply.value(QStringLiteral("messages")));
    for (const QVariant &entry : list.toList()) {
        if (ZuveroChatMessagePtr message = ZuveroChatMessage::initWithPropertyList(entry))
            messages.append(message);
    }
    return messages;
}

QString uuidFrom(QRandomGenerator &random)
{
    quint32 words[4];
    random.fillRange(words);
    return QUuid::fromRfc4122(QByteArrayView(reinterpret_cast<const char *>(words), 16))
        .toString(QUuid::WithoutBraces);
}

QString describeMismatch(const char *data, const ZuveroChatMessageList &ours,
                         const ZuveroChatMessageList &literal)
{
    if (ours == literal)
        return {};
    return QStringLiteral("%1: the library's merge gives %2 messages, the literal rule %3%4")
        .arg(QLatin1String(data))
        .arg(ours.size())
        .arg(literal.size())
        .arg(ours.size() == literal.size() ? QStringLiteral(", in another order") : QString());
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

std::pair<ZuveroChatMessageList, ZuveroChatMessageList> mergeData(int existingCount, int newCount)
{
    QRandomGenerator random(quint32(existingCount * 31 + newCount));
    const QDateTime start = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC);
    ZuveroChatMessageList existing, fresh;
    existing.reserve(existingCount);
    for (int i = 0; i < existingCount; ++i) {
        auto message = ZuveroChatMessage::init();
        message->setUuid(uuidFrom(random));
        message->setSender(QStringLiteral("user"));
        message->setText(QStringLiteral("message %1").arg(i));
        message->setDate(start.addSecs(i));
        existing.append(message);
    }
    for (int i = 0; i < newCount; ++i) {
        auto message = ZuveroChatMessage::init();
        const int at = int(random.bounded(existingCount));
        if (i % 2 == 0) {
            // A newer copy of an existing message, as a download brings it back.
            message->setUuid(existing.at(at)->uuid());
            message->setDate(existing.at(at)->date());
        } else {
            message->setUuid(uuidFrom(random));
            // Some on an existing message's second, some on the previous new one's.
            message->setDate(i % 3 == 0 && !fresh.isEmpty() ? fresh.last()->date()
                                                            : start.addSecs(at));
        }
        message->setSender(QStringLiteral("agent"));
        message->setText(QStringLiteral("new %1").arg(i));
        fresh.append(message);
    }
    return {existing, fresh};
}

double median(QList<double> sample)
{
    if (sample.isEmpty())
        return 0;
    std::sort(sample.begin(), sample.end());
    const qsizetype middle = sample.size() / 2;
    return sample.size() % 2 ? sample.at(middle) : (sample.at(middle - 1) + sample.at(middle)) / 2;
}

InProcess::InProcess(const QByteArray &page)
{
    // The claims the facade signs, and the bytes its signature covers.
    const QByteArray secret = QByteArray::fromHex("7a757665726f2d7365637265742d3432");
    const QVariantMap claims{
        {QStringLiteral("apiKey"), QString::fromLatin1(ZuveroSHA256(secret)->toHex())},
        {QStringLiteral("installationId"), QStringLiteral("3F2504E0-4F89-41D3-9A0C-0305E82C3301")},
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
    m_cases << Case{QStringLiteral("token: HMAC-SHA256, OpenSSL"),
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

    // A page of 50 messages: the text parsed, the messages built, and the whole reply handled.
    const QVariant parsed = *ZVXJSON::parse(page);
    ZVXURLSessionResult result;
    result.data = page;
    result.response = ZVXURLResponse{QUrl(), 200, {}};
    m_cases << Case{QStringLiteral("page: parse the text"),
                    [=] {
                        for (int i = 0; i < Pages; ++i)
                            sink = ZVXJSON::parse(page)->toMap().size();
                    },
                    Pages};
    m_cases << Case{QStringLiteral("page: build the messages"),
                    [=] {
                        for (int i = 0; i < Pages; ++i)
                            sink = buildMessages(parsed).size();
                    },
                    Pages};
    m_cases << Case{QStringLiteral("page: library (checks, parse, build)"),
                    [=] {
                        for (int i = 0; i < Pages; ++i) {
                            const std::optional<QVariant> json
                                = ZuveroConnectionPrivate::handleReceivedJSON(
                                    result, [](const ZuveroError &) {});
                            sink = buildMessages(*json).size();
                        }
                    },
                    Pages};
    m_cases << Case{QStringLiteral("page: QJsonDocument::fromJson"),
                    [=] {
                        for (int i = 0; i < Pages; ++i)
                            sink = QJsonDocument::fromJson(page).object().size();
                    },
                    Pages};

    for (const auto &[existingCount, newCount] : {std::pair{100000, 50}, std::pair{10000, 1000}}) {
        const auto [existing, fresh] = mergeData(existingCount, newCount);
        const QByteArray label
            = QByteArray::number(existingCount) + " + " + QByteArray::number(newCount);
        m_mergeCheck += describeMismatch(label.constData(),
                                         ZVXConversation::combineExistingMessages(existing, fresh),
                                         literalCombine(existing, fresh));
        m_cases << Case{
            QStringLiteral("merge %1: library").arg(QLatin1String(label)),
            [=] { sink = ZVXConversation::combineExistingMessages(existing, fresh).size(); },
            existingCount};
        m_cases << Case{QStringLiteral("merge %1: literal rule").arg(QLatin1String(label)),
                        [=] { sink = literalCombine(existing, fresh).size(); }, existingCount};
    }
}

} // namespace ZVXBench
