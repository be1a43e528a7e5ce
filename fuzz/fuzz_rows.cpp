// The chat list's rows: bytes describe a pool of messages (senders, dates that
// repeat, go back or jump by exactly the thresholds, texts, places, pictures,
// offline flags) and two conversations drawn from it. Their rows must keep the
// list's shape, and a model fed one then the other must show the builder's
// rows each time without ever resetting.

#include "ZVXChatListModel.h"
#include "ZVXChatRowBuilder.h"
#include "ZVXFuzz.h"

#include <QAbstractItemModelTester>
#include <QSet>

#include <algorithm>

ZVX_FUZZ_APPLICATION(ZVXFuzz::Application::Core)

namespace {

const QDateTime Start = QDateTime::fromSecsSinceEpoch(1'700'000'040, Qt::UTC);

struct Pooled
{
    ZuveroChatMessagePtr message;
    bool inFirst = false;
    bool inSecond = false;
};

QList<Pooled> pool(ZVXFuzz::Reader &input, bool duplicateUuids)
{
    QList<Pooled> pool;
    qint64 msecs = 0;
    for (int count = input.byte() % 48; count > 0; --count) {
        const uint8_t sender = input.byte();
        const uint8_t when = input.byte();
        const uint8_t contents = input.byte();
        auto message = std::make_shared<ZuveroChatMessage>();
        message->setUuid(QStringLiteral("m%1").arg(pool.size()));
        if (duplicateUuids && (contents & 0x80) && !pool.isEmpty())
            message->setUuid(pool[input.byte() % pool.size()].message->uuid());
        const char *senders[] = {"user", "user", "agent", "system", "bot"};
        message->setSender(QString::fromLatin1(senders[sender % 5]));
        switch (when % 8) {
        case 0: // none
            break;
        case 1: // the same as the one before
            break;
        case 2: // earlier
            msecs -= qint64(input.byte()) * 10'000;
            break;
        case 3:
            msecs += 600'000;
            break;
        case 4:
            msecs += 3'600'000;
            break;
        case 5:
            msecs += qint64(input.byte()) * 1'000 + (when >> 3);
            break;
        default:
            msecs += qint64(input.word()) * 1'000 * (when % 8 - 5);
        }
        if (when % 8)
            message->setDate(Start.addMSecs(msecs));
        if (contents & 0x01)
            message->setText(QStringLiteral("text"));
        else if (contents & 0x02)
            message->setText(QString());
        if (contents & 0x04)
            message->setLocationDictionary(QVariantMap{{QStringLiteral("lat"), 1.0}});
        if (const int pictures = (contents >> 3) & 0x03) {
            ZuveroChatAttachmentList attachments;
            for (int k = 0; k < pictures; ++k)
                attachments.append(std::make_shared<ZuveroChatAttachment>());
            message->setAttachments(attachments);
        } else if (sender & 0x80) {
            message->setAttachments(ZuveroChatAttachmentList());
        }
        message->setIsOffline(contents & 0x20);
        message->setIsErrored(sender & 0x40);
        pool.append({message, bool(sender & 0x08), bool(sender & 0x10)});
    }
    return pool;
}

ZuveroChatMessageList conversation(const QList<Pooled> &pool, bool first)
{
    ZuveroChatMessageList messages;
    for (const Pooled &pooled : pool) {
        if (first ? pooled.inFirst : pooled.inSecond)
            messages.append(pooled.message);
    }
    return messages;
}

bool isBubble(const ZuveroChatViewItem &row)
{
    return bool(row.message());
}

// Reads the rows back as each message's [Spacer][Date][Label][Text][Location][Attachment...],
// and checks who got a label: the first offline user message after a date row, a
// label or a bubble of a message that is not offline.
void checkShape(const QList<ZuveroChatViewItem> &rows, const ZuveroChatMessageList &messages,
                bool hasMore, const ZVXChatRowBuilder::DateText &dateText)
{
    ZVX_FUZZ_CHECK(
        hasMore == (!rows.isEmpty() && rows[0].kind() == ZuveroChatViewItemKindLoadMoreMessages));
    std::optional<QString> lastDateText;
    for (qsizetype i = hasMore ? 1 : 0; i < rows.size(); ++i) {
        const ZuveroChatViewItem &row = rows[i];
        ZVX_FUZZ_CHECK(row.kind() != ZuveroChatViewItemKindLoadMoreMessages);
        ZVX_FUZZ_CHECK(row.showTail() == row.showUserName());
        if (row.kind() == ZuveroChatViewItemKindDate) {
            ZVX_FUZZ_CHECK(i == 0 || rows[i - 1].kind() != ZuveroChatViewItemKindDate);
            ZVX_FUZZ_CHECK(dateText(row.date()) != lastDateText);
            lastDateText = dateText(row.date());
        }
    }

    qsizetype at = hasMore ? 1 : 0;
    const auto next = [&](QLatin1String kind) {
        return at < rows.size() && rows[at].kind() == kind ? &rows[at] : nullptr;
    };
    bool offlineRun = false;
    bool anyBefore = false;
    for (const ZuveroChatMessagePtr &message : messages) {
        const bool user = message->isUserMessage();
        const bool agent = message->isAgentMessage();
        if (const ZuveroChatViewItem *spacer = next(ZuveroChatViewItemKindSpacer);
            spacer && spacer->anchorUuid() == message->uuid()) {
            ZVX_FUZZ_CHECK(anyBefore);
            ++at;
        }
        if (const ZuveroChatViewItem *date = next(ZuveroChatViewItemKindDate);
            date && date->anchorUuid() == message->uuid()) {
            ZVX_FUZZ_CHECK(date->date() == message->date());
            offlineRun = false;
            ++at;
        }
        const bool labelled
            = user && message->isOffline() && next(ZuveroChatViewItemKindUserMessageUnsentLabel);
        ZVX_FUZZ_CHECK(labelled == (user && message->isOffline() && !offlineRun));
        if (labelled) {
            offlineRun = false;
            ++at;
        }
        const auto bubble = [&](QLatin1String kind, bool withTail) {
            ZVX_FUZZ_CHECK(next(kind) && rows[at].message() == message);
            ZVX_FUZZ_CHECK(rows[at].date() == message->date());
            ZVX_FUZZ_CHECK(withTail || !rows[at].showTail());
            offlineRun = message->isOffline();
            return &rows[at++];
        };
        const bool withText = message->text() && !message->text()->isEmpty();
        if (withText) {
            bubble(user        ? ZuveroChatViewItemKindUserMessage
                       : agent ? ZuveroChatViewItemKindAgentMessage
                               : ZuveroChatViewItemKindSystemMessage,
                   true);
        }
        if (message->locationDictionary()) {
            const ZuveroChatViewItem *row
                = bubble(user ? ZuveroChatViewItemKindUserMessageLocation
                              : ZuveroChatViewItemKindAgentMessageLocation,
                         !withText);
            ZVX_FUZZ_CHECK(row->locationDictionary() == message->locationDictionary());
        }
        for (const ZuveroChatAttachmentPtr &attachment :
             message->attachments().value_or(ZuveroChatAttachmentList())) {
            const ZuveroChatViewItem *row
                = bubble(user ? ZuveroChatViewItemKindUserMessageAttachment
                              : ZuveroChatViewItemKindAgentMessageAttachment,
                         !withText);
            ZVX_FUZZ_CHECK(row->attachment() == attachment);
        }
        anyBefore = true;
    }
    ZVX_FUZZ_CHECK(at == rows.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    ZVXFuzz::Reader input(data, size);
    const uint8_t header = input.byte();
    const bool duplicateUuids = header & 0x01;
    const ZVXChatRowBuilder::DateText dateText = header & 0x02
        ? ZVXChatRowBuilder::DateText(
            [](const QDateTime &date) { return QString::number(date.toSecsSinceEpoch() / 3600); })
        : ZVXChatRowBuilder::DateText(
            [](const QDateTime &date) { return QString::number(date.toSecsSinceEpoch() / 60); });
    const QList<Pooled> messages = pool(input, duplicateUuids);

    ZVXChatListModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    bool reset = false;
    QObject::connect(&model, &QAbstractItemModel::modelAboutToBeReset, [&reset] { reset = true; });
    for (const bool first : {true, false}) {
        const ZuveroChatMessageList chat = conversation(messages, first);
        const bool hasMore = header & (first ? 0x04 : 0x08);
        const QList<ZuveroChatViewItem> rows
            = ZVXChatRowBuilder::buildRows(chat, hasMore, dateText);
        ZVX_FUZZ_CHECK(ZVXChatRowBuilder::buildRows(chat, hasMore, dateText) == rows);
        // A build that goes on after any message gives the rows of one build of all.
        ZVXChatRowBuilder::Build build(hasMore, dateText);
        const qsizetype split = header % (chat.size() + 1);
        for (qsizetype i = 0; i < split; ++i)
            build.append(chat.at(i));
        ZVX_FUZZ_CHECK(build.continuesWith(chat));
        for (qsizetype i = split; i < chat.size(); ++i)
            build.append(chat.at(i));
        ZVX_FUZZ_CHECK(build.rows() == rows);
        if (!duplicateUuids)
            checkShape(rows, chat, hasMore, dateText);
        QSet<ZuveroChatViewItem::Identity> identities;
        for (const ZuveroChatViewItem &row : rows) {
            identities.insert(row.identity());
            ZVX_FUZZ_CHECK(isBubble(row)
                           == (row.isUserSide() || row.isAgentSide()
                               || row.kind() == ZuveroChatViewItemKindSystemMessage));
        }
        ZVX_FUZZ_CHECK(identities.size() == rows.size());

        model.setRows(rows);
        ZVX_FUZZ_CHECK(model.rows() == rows);

        // The offline queue: the user's messages that the input marks.
        ZuveroChatMessageList queue;
        for (const ZuveroChatMessagePtr &message : chat) {
            if (message->isUserMessage() && (input.byte() & 1))
                queue.append(message);
        }
        const auto change = ZVXChatRowBuilder::updateWithOfflineMessages(model.rows(), queue);
        // Only a label comes, goes or moves; the last one when there are several.
        const auto withoutLabels = [](const QList<ZuveroChatViewItem> &rows) {
            QList<ZuveroChatViewItem> others;
            for (const ZuveroChatViewItem &row : rows) {
                if (row.kind() != ZuveroChatViewItemKindUserMessageUnsentLabel)
                    others.append(row);
            }
            return others;
        };
        const QList<ZuveroChatViewItem> others = withoutLabels(rows);
        ZVX_FUZZ_CHECK(withoutLabels(change.rows) == others);
        const qsizetype labels = rows.size() - others.size();
        using Kind = ZVXChatRowBuilder::UnsentLabelChange::Kind;
        const qsizetype expectedLabels = change.kind == Kind::Insert ? labels + 1
            : change.kind == Kind::Remove                            ? labels - 1
                                                                     : labels;
        ZVX_FUZZ_CHECK(change.rows.size() - others.size() == expectedLabels);
        ZVX_FUZZ_CHECK((change.kind == Kind::Insert) == (labels == 0 && !queue.isEmpty()));
        if (queue.isEmpty())
            ZVX_FUZZ_CHECK(change.kind == (labels ? Kind::Remove : Kind::None));
        // Queued means equal to a queued message: with a uuid that came twice, another object.
        for (const ZuveroChatMessagePtr &message : change.markedOffline) {
            ZVX_FUZZ_CHECK(message->isOffline());
            ZVX_FUZZ_CHECK(
                std::any_of(queue.cbegin(), queue.cend(), [&](const ZuveroChatMessagePtr &queued) {
                    return *queued == *message;
                }));
        }
        model.applyUnsentLabelChange(change);
        ZVX_FUZZ_CHECK(model.rows() == change.rows);
    }
    ZVX_FUZZ_CHECK(!reset);
    return 0;
}
