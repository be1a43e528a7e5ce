#include "ZVXChatListModel.h"

#include "ZVXChatRowDiff.h"
#include "ZVXLocalization.h"

#include <QHash>

#include <optional>

namespace {

// What data() answered from the message when the row was last announced: a
// message changed in place (sent at last, failed) is noticed at the next setRows().
struct Shown
{
    bool offline = false;
    bool errored = false;
    double progress = 1.0;
};

Shown shownOf(const ZuveroChatViewItem &row)
{
    const ZuveroChatMessagePtr &message = row.message();
    if (!message)
        return {};
    return {message->isOffline(), message->isErrored(), message->uploadProgress()};
}

// Which roles of a row changed, as bits; All when the row shows another object.
enum Changed : unsigned {
    Nothing = 0,
    All = 1u << 0,
    Date = 1u << 1,
    Tail = 1u << 2,
    Name = 1u << 3,
    Offline = 1u << 4,
    Errored = 1u << 5,
    Progress = 1u << 6,
    Item = 1u << 7,
};

unsigned changes(const ZuveroChatViewItem &before, const Shown &shown,
                 const ZuveroChatViewItem &after)
{
    unsigned changed = Nothing;
    if (before != after) {
        if (before.message() != after.message() || before.attachment() != after.attachment())
            return All;
        changed |= Item;
        if (before.date() != after.date())
            changed |= Date;
        if (before.showTail() != after.showTail())
            changed |= Tail;
        if (before.showUserName() != after.showUserName())
            changed |= Name;
    }
    const Shown now = shownOf(after);
    if (now.offline != shown.offline)
        changed |= Offline;
    if (now.errored != shown.errored)
        changed |= Errored;
    if (now.progress != shown.progress)
        changed |= Progress;
    return changed;
}

QList<int> rolesOf(unsigned changed)
{
    QList<int> roles;
    if (changed & All)
        return roles;
    if (changed & Date)
        roles << ZVXChatListModel::DateRole << Qt::DisplayRole << Qt::AccessibleTextRole;
    if (changed & Tail)
        roles << ZVXChatListModel::ShowTailRole;
    if (changed & Name)
        roles << ZVXChatListModel::ShowUserNameRole;
    if (changed & Offline)
        roles << ZVXChatListModel::IsOfflineRole;
    if (changed & Errored)
        roles << ZVXChatListModel::IsErroredRole;
    if (changed & Progress)
        roles << ZVXChatListModel::UploadProgressRole;
    roles << ZVXChatListModel::ItemRole;
    return roles;
}

bool sameMessage(const ZuveroChatMessagePtr &a, const ZuveroChatMessagePtr &b)
{
    return a == b || (a && b && *a == *b);
}

} // namespace

class ZVXChatListModelPrivate
{
public:
    explicit ZVXChatListModelPrivate(ZVXChatListModel *model)
        : q(model)
    { }

    // Announces the rows whose entry in \a changed is not Nothing, in runs of equal changes.
    void announce(const std::vector<unsigned> &changed);
    void forgetIndex() { rowsByUuid.reset(); }
    bool fits(const ZVXChatRowBuilder::UnsentLabelChange &change) const;

    ZVXChatListModel *q;
    QList<ZuveroChatViewItem> rows;
    QList<Shown> shown;
    ZuveroDateFormatter formatter;
    // Built when first asked for, and dropped when rows come and go.
    mutable std::optional<QHash<QString, QList<int>>> rowsByUuid;
};

void ZVXChatListModelPrivate::announce(const std::vector<unsigned> &changed)
{
    for (int i = 0; i < int(changed.size());) {
        if (!changed[size_t(i)]) {
            ++i;
            continue;
        }
        int end = i + 1;
        while (end < int(changed.size()) && changed[size_t(end)] == changed[size_t(i)])
            ++end;
        Q_EMIT q->dataChanged(q->index(i), q->index(end - 1), rolesOf(changed[size_t(i)]));
        i = end;
    }
}

bool ZVXChatListModelPrivate::fits(const ZVXChatRowBuilder::UnsentLabelChange &change) const
{
    using Kind = ZVXChatRowBuilder::UnsentLabelChange::Kind;
    const QLatin1String label = ZuveroChatViewItemKindUserMessageUnsentLabel;
    const auto isLabel = [label](const QList<ZuveroChatViewItem> &list, int row) {
        return row >= 0 && row < list.size() && list[row].kind() == label;
    };
    switch (change.kind) {
    case Kind::None:
        return change.rows.size() == rows.size();
    case Kind::Move:
        return change.rows.size() == rows.size() && change.from != change.to
            && isLabel(rows, change.from) && isLabel(change.rows, change.to);
    case Kind::Remove:
        return change.rows.size() == rows.size() - 1 && isLabel(rows, change.at);
    case Kind::Insert:
        return change.rows.size() == rows.size() + 1 && isLabel(change.rows, change.at);
    }
    return false;
}

ZVXChatListModel::ZVXChatListModel(QObject *parent)
    : QAbstractListModel(parent)
    , d(std::make_unique<ZVXChatListModelPrivate>(this))
{ }

ZVXChatListModel::~ZVXChatListModel() = default;

int ZVXChatListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(d->rows.size());
}

QVariant ZVXChatListModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return QVariant();
    const ZuveroChatViewItem &row = d->rows[index.row()];
    const ZuveroChatMessagePtr &message = row.message();
    switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole:
        return accessibleText(index.row());
    case KindRole:
        return QString(row.kind());
    case UuidRole:
        return message ? message->uuid() : QString();
    case DateRole:
        return row.date();
    case ShowTailRole:
        return row.showTail();
    case ShowUserNameRole:
        return row.showUserName();
    case AttachmentUuidRole:
        return row.attachment() ? row.attachment()->uuid() : QString();
    case UploadProgressRole:
        return message ? QVariant(message->uploadProgress()) : QVariant();
    case IsOfflineRole:
        return message ? QVariant(message->isOffline()) : QVariant();
    case IsErroredRole:
        return message ? QVariant(message->isErrored()) : QVariant();
    case ItemRole:
        return QVariant::fromValue(row);
    default:
        return QVariant();
    }
}

Qt::ItemFlags ZVXChatListModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemNeverHasChildren;
}

QHash<int, QByteArray> ZVXChatListModel::roleNames() const
{
    QHash<int, QByteArray> names = QAbstractListModel::roleNames();
    names.insert(Qt::AccessibleTextRole, "accessibleText");
    names.insert(KindRole, "kind");
    names.insert(UuidRole, "uuid");
    names.insert(DateRole, "date");
    names.insert(ShowTailRole, "showTail");
    names.insert(ShowUserNameRole, "showUserName");
    names.insert(AttachmentUuidRole, "attachmentUuid");
    names.insert(UploadProgressRole, "uploadProgress");
    names.insert(IsOfflineRole, "isOffline");
    names.insert(IsErroredRole, "isErrored");
    names.insert(ItemRole, "item");
    return names;
}

const QList<ZuveroChatViewItem> &ZVXChatListModel::rows() const
{
    return d->rows;
}

ZuveroChatViewItem ZVXChatListModel::item(int row) const
{
    return row >= 0 && row < d->rows.size() ? d->rows[row] : ZuveroChatViewItem();
}

void ZVXChatListModel::setRows(const QList<ZuveroChatViewItem> &rows)
{
    const QList<ZVXChatRowDiff::Step> steps = ZVXChatRowDiff::steps(d->rows, rows);
    if (!steps.isEmpty())
        d->forgetIndex();
    for (const ZVXChatRowDiff::Step &step : steps) {
        switch (step.kind) {
        case ZVXChatRowDiff::Step::Kind::Remove:
            beginRemoveRows(QModelIndex(), step.row, step.row + step.count - 1);
            d->rows.remove(step.row, step.count);
            d->shown.remove(step.row, step.count);
            endRemoveRows();
            break;
        case ZVXChatRowDiff::Step::Kind::Move:
            // Qt names the destination as the row it is put before, counted before the move.
            beginMoveRows(QModelIndex(), step.row, step.row, QModelIndex(),
                          step.to > step.row ? step.to + 1 : step.to);
            d->rows.move(step.row, step.to);
            d->shown.move(step.row, step.to);
            endMoveRows();
            break;
        case ZVXChatRowDiff::Step::Kind::Insert: {
            beginInsertRows(QModelIndex(), step.row, step.row + step.count - 1);
            const QList<ZuveroChatViewItem> added = rows.sliced(step.row, step.count);
            if (step.row == d->rows.size())
                d->rows.append(added);
            else
                d->rows = d->rows.first(step.row) + added + d->rows.sliced(step.row);
            d->shown.insert(step.row, step.count, Shown());
            for (int i = 0; i < step.count; ++i)
                d->shown[step.row + i] = shownOf(added[i]);
            endInsertRows();
            break;
        }
        }
    }
    std::vector<unsigned> changed(size_t(rows.size()), Nothing);
    for (int i = 0; i < rows.size(); ++i) {
        changed[size_t(i)] = changes(d->rows[i], d->shown[i], rows[i]);
        if (changed[size_t(i)] != Nothing)
            d->shown[i] = shownOf(rows[i]);
    }
    // The same rows, as shared with the caller's list, and in the same order.
    d->rows = rows;
    d->announce(changed);
}

void ZVXChatListModel::applyUnsentLabelChange(const ZVXChatRowBuilder::UnsentLabelChange &change)
{
    using Kind = ZVXChatRowBuilder::UnsentLabelChange::Kind;
    if (!d->fits(change)) {
        setRows(change.rows);
        return;
    }
    switch (change.kind) {
    case Kind::None:
        break;
    case Kind::Move:
        d->forgetIndex();
        beginMoveRows(QModelIndex(), change.from, change.from, QModelIndex(),
                      change.to > change.from ? change.to + 1 : change.to);
        d->rows = change.rows;
        d->shown.move(change.from, change.to);
        endMoveRows();
        break;
    case Kind::Remove:
        d->forgetIndex();
        beginRemoveRows(QModelIndex(), change.at, change.at);
        d->rows = change.rows;
        d->shown.remove(change.at);
        endRemoveRows();
        break;
    case Kind::Insert:
        d->forgetIndex();
        beginInsertRows(QModelIndex(), change.at, change.at);
        d->rows = change.rows;
        d->shown.insert(change.at, Shown());
        endInsertRows();
        break;
    }
    // Whatever else the rows say now (the flags just set, above all) is announced as by setRows().
    setRows(change.rows);
}

void ZVXChatListModel::setUploadProgress(const ZuveroChatMessagePtr &message, double progress)
{
    std::vector<unsigned> changed(size_t(d->rows.size()), Nothing);
    for (int row : rowsForMessage(message)) {
        const ZuveroChatMessagePtr shown = d->rows[row].message();
        shown->setUploadProgress(progress);
        d->shown[row].progress = progress;
        changed[size_t(row)] = Progress;
    }
    d->announce(changed);
}

QList<int> ZVXChatListModel::rowsForMessage(const ZuveroChatMessagePtr &message) const
{
    if (!message)
        return {};
    if (!d->rowsByUuid) {
        d->rowsByUuid.emplace();
        for (int i = 0; i < d->rows.size(); ++i) {
            if (const ZuveroChatMessagePtr shown = d->rows[i].message())
                (*d->rowsByUuid)[shown->uuid()].append(i);
        }
    }
    QList<int> found;
    for (int row : d->rowsByUuid->value(message->uuid())) {
        if (sameMessage(d->rows[row].message(), message))
            found.append(row);
    }
    return found;
}

ZuveroDateFormatter ZVXChatListModel::dateFormatter() const
{
    return d->formatter;
}

void ZVXChatListModel::setDateFormatter(const ZuveroDateFormatter &formatter)
{
    if (formatter == d->formatter)
        return;
    d->formatter = formatter;
    retranslate();
}

void ZVXChatListModel::retranslate()
{
    if (!d->rows.isEmpty())
        Q_EMIT dataChanged(index(0), index(int(d->rows.size()) - 1),
                           {Qt::DisplayRole, Qt::AccessibleTextRole});
}

QString ZVXChatListModel::accessibleText(int row) const
{
    using ZVXLocalization::localizeString;
    if (row < 0 || row >= d->rows.size())
        return QString();
    const ZuveroChatViewItem &item = d->rows[row];
    const QLatin1String kind = item.kind();
    if (kind == ZuveroChatViewItemKindDate)
        return item.date().isValid() ? d->formatter.stringFromDate(item.date()) : QString();
    if (kind == ZuveroChatViewItemKindUserMessageUnsentLabel)
        return localizeString(QStringLiteral("zuveroWaitingForConnectionLabel"),
                              QStringLiteral("Waiting for connection"));
    if (kind == ZuveroChatViewItemKindLoadMoreMessages)
        return localizeString(QStringLiteral("zuveroLoadMoreMessagesButtonTitle"));
    const ZuveroChatMessagePtr message = item.message();
    if (!message)
        return QString();

    QString who;
    if (message->isUserMessage()) {
        who = localizeString(QStringLiteral("zuveroUserName"), QStringLiteral("You"));
    } else if (message->isAgentMessage()) {
        const QString name = message->userName().value_or(QString());
        who = name.isEmpty()
            ? localizeString(QStringLiteral("zuveroAgentName"), QStringLiteral("Agent"))
            : name;
    } else {
        who = localizeString(QStringLiteral("zuveroSystemName"), QStringLiteral("System"));
    }

    const QString picture
        = localizeString(QStringLiteral("zuveroPictureDescription"), QStringLiteral("Picture"));
    QString what;
    if (item.locationDictionary()) {
        what = localizeString(QStringLiteral("zuveroLocationDescription"),
                              QStringLiteral("Location"));
    } else if (item.attachment()) {
        // A picture pasted or taken in the chat goes out named after its identifier: nothing
        // a listener could use.
        const QString name = item.attachment()->filename().value_or(QString());
        const bool named = !name.isEmpty() && !name.startsWith(item.attachment()->uuid());
        what = named ? name : picture;
    } else if (kind == ZuveroChatViewItemKindUserMessageAttachment
               || kind == ZuveroChatViewItemKindAgentMessageAttachment) {
        what = picture;
    } else {
        what = message->text().value_or(QString());
    }

    const QDateTime date = item.date();
    if (!date.isValid())
        return localizeString(QStringLiteral("zuveroMessageAccessibleFormat")).arg(who, what);
    const QString when
        = d->formatter.usedLocale().toString(date.toLocalTime().time(), d->formatter.timeStyle);
    return localizeString(QStringLiteral("zuveroDatedMessageAccessibleFormat"))
        .arg(who, what, when);
}
