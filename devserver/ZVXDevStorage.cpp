#include "ZVXDevStorage.h"

#include "ZVXDevJSON.h"

#include <QDateTime>
#include <QFile>

#include <sqlite3.h>

#include <stdexcept>

namespace {

constexpr int SchemaVersion = 1;

const char *const Schema = R"sql(
CREATE TABLE IF NOT EXISTS users (
    id INTEGER PRIMARY KEY,
    api_key TEXT NOT NULL,
    -- "u:" + userId, else "i:" + installationId
    identity TEXT NOT NULL,
    user_id TEXT,
    installation_id TEXT NOT NULL DEFAULT '',
    user_name TEXT,
    extra TEXT,
    created_ms INTEGER NOT NULL,
    seen_ms INTEGER NOT NULL,
    UNIQUE (api_key, identity));
CREATE TABLE IF NOT EXISTS devices (
    id INTEGER PRIMARY KEY,
    user INTEGER NOT NULL REFERENCES users (id),
    api_key TEXT NOT NULL,
    installation_id TEXT NOT NULL,
    device_token TEXT,
    apns TEXT,
    app_id TEXT,
    app_version TEXT,
    device_info TEXT,
    registered_ms INTEGER NOT NULL,
    UNIQUE (user, installation_id));
CREATE TABLE IF NOT EXISTS messages (
    id INTEGER PRIMARY KEY,
    uuid TEXT NOT NULL UNIQUE,
    user INTEGER NOT NULL REFERENCES users (id),
    sender TEXT NOT NULL CHECK (sender IN ('user', 'agent', 'system')),
    text TEXT,
    user_name TEXT,
    location TEXT,
    context TEXT,
    date_ms INTEGER NOT NULL,
    read INTEGER NOT NULL DEFAULT 0);
CREATE INDEX IF NOT EXISTS messages_by_date ON messages (user, date_ms, id);
CREATE TABLE IF NOT EXISTS attachments (
    id INTEGER PRIMARY KEY,
    uuid TEXT NOT NULL UNIQUE,
    message INTEGER NOT NULL REFERENCES messages (id),
    position INTEGER NOT NULL,
    content_type TEXT NOT NULL,
    filename TEXT NOT NULL,
    length INTEGER NOT NULL,
    width INTEGER NOT NULL DEFAULT 0,
    height INTEGER NOT NULL DEFAULT 0,
    has_preview INTEGER NOT NULL DEFAULT 0);
CREATE INDEX IF NOT EXISTS attachments_by_message ON attachments (message, position);
)sql";

const char *const MessageColumns
    = "id, uuid, user, sender, text, user_name, location, context, date_ms, read";

[[noreturn]] void fail(sqlite3 *db, const char *what)
{
    throw std::runtime_error(std::string("database: ") + what + ": " + sqlite3_errmsg(db));
}

QString identityKey(const ZVXDevIdentity &identity)
{
    return identity.userId ? QStringLiteral("u:") + *identity.userId
                           : QStringLiteral("i:") + identity.installationId;
}

qint64 now()
{
    return QDateTime::currentMSecsSinceEpoch();
}

using ZVXDevJSON::valueFromText;
using ZVXDevJSON::valueText;

} // namespace

class ZVXDevStorage::Statement
{
public:
    Statement(sqlite3 *db, const char *sql)
        : m_db(db)
    {
        if (sqlite3_prepare_v2(db, sql, -1, &m_statement, nullptr) != SQLITE_OK)
            fail(db, sql);
    }
    ~Statement() { sqlite3_finalize(m_statement); }
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    template<typename... Values>
    Statement &bind(const Values &...values)
    {
        sqlite3_reset(m_statement);
        int index = 0;
        (bindOne(++index, values), ...);
        return *this;
    }

    //! True while a row is available.
    bool next()
    {
        const int result = sqlite3_step(m_statement);
        if (result == SQLITE_ROW)
            return true;
        if (result != SQLITE_DONE)
            fail(m_db, sqlite3_sql(m_statement));
        return false;
    }
    void run()
    {
        while (next()) { }
    }

    qint64 integer(int column) const { return sqlite3_column_int64(m_statement, column); }
    qint64 size(int column) const { return sqlite3_column_bytes(m_statement, column); }
    std::optional<QString> text(int column) const
    {
        if (sqlite3_column_type(m_statement, column) == SQLITE_NULL)
            return std::nullopt;
        const auto *bytes
            = reinterpret_cast<const char *>(sqlite3_column_text(m_statement, column));
        return QString::fromUtf8(bytes, sqlite3_column_bytes(m_statement, column));
    }
    QString string(int column) const { return text(column).value_or(QString()); }

private:
    void bindOne(int index, qint64 value) { sqlite3_bind_int64(m_statement, index, value); }
    void bindOne(int index, int value) { sqlite3_bind_int64(m_statement, index, value); }
    void bindOne(int index, bool value) { sqlite3_bind_int(m_statement, index, value ? 1 : 0); }
    void bindOne(int index, const QString &value)
    {
        const QByteArray utf8 = value.toUtf8();
        sqlite3_bind_text(m_statement, index, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT);
    }
    void bindOne(int index, const std::optional<QString> &value)
    {
        if (value)
            bindOne(index, *value);
        else
            sqlite3_bind_null(m_statement, index);
    }

    sqlite3 *m_db;
    sqlite3_stmt *m_statement = nullptr;
};

namespace {

// Rolls back unless committed, so that a throw leaves nothing half-written.
class Transaction
{
public:
    explicit Transaction(sqlite3 *db)
        : m_db(db)
    {
        if (sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) != SQLITE_OK)
            fail(db, "BEGIN");
    }
    ~Transaction()
    {
        if (!m_committed)
            sqlite3_exec(m_db, "ROLLBACK", nullptr, nullptr, nullptr);
    }
    void commit()
    {
        if (sqlite3_exec(m_db, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK)
            fail(m_db, "COMMIT");
        m_committed = true;
    }

private:
    sqlite3 *m_db;
    bool m_committed = false;
};

} // namespace

ZVXDevStorage::~ZVXDevStorage()
{
    sqlite3_close_v2(m_db);
}

bool ZVXDevStorage::execute(const char *sql)
{
    return sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool ZVXDevStorage::open(const QString &path, QString *error)
{
    std::lock_guard lock(m_mutex);
    if (sqlite3_open_v2(QFile::encodeName(path).constData(), &m_db,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr)
        != SQLITE_OK) {
        *error = QStringLiteral("cannot open the database %1: %2")
                     .arg(path, QString::fromUtf8(sqlite3_errmsg(m_db)));
        return false;
    }
    sqlite3_busy_timeout(m_db, 5000);
    qint64 found = 0;
    {
        Statement version(m_db, "PRAGMA user_version");
        found = version.next() ? version.integer(0) : 0;
    }
    if (found > SchemaVersion) {
        *error = QStringLiteral("the database %1 was made by a newer server").arg(path);
        return false;
    }
    // WAL with NORMAL sync survives a crash of the server, and a commit costs no fsync.
    if (!execute("PRAGMA journal_mode = WAL") || !execute("PRAGMA synchronous = NORMAL")
        || !execute("PRAGMA foreign_keys = ON") || !execute(Schema)
        || !execute("PRAGMA user_version = 1")) {
        *error = QStringLiteral("cannot set up the database %1: %2")
                     .arg(path, QString::fromUtf8(sqlite3_errmsg(m_db)));
        return false;
    }
    return true;
}

namespace {

const char *const UserColumns = "id, api_key, user_id, installation_id, user_name, extra";

template<typename S>
ZVXDevUser readUser(const S &statement, int first = 0)
{
    ZVXDevUser user;
    user.id = statement.integer(first);
    user.apiKey = statement.string(first + 1);
    user.userId = statement.text(first + 2);
    user.installationId = statement.string(first + 3);
    user.userName = statement.text(first + 4);
    if (const QJsonValue extra = valueFromText(statement.text(first + 5)); extra.isObject())
        user.extra = extra.toObject();
    return user;
}

const char *const AttachmentColumns
    = "a.uuid, a.content_type, a.filename, a.length, a.width, a.height, a.has_preview, m.user";

template<typename S>
ZVXDevAttachmentRecord readAttachment(const S &statement)
{
    ZVXDevAttachmentRecord attachment;
    attachment.uuid = statement.string(0);
    attachment.contentType = statement.string(1);
    attachment.filename = statement.string(2);
    attachment.length = statement.integer(3);
    if (statement.integer(4) > 0 && statement.integer(5) > 0)
        attachment.imageSize = QSize(int(statement.integer(4)), int(statement.integer(5)));
    attachment.hasPreview = statement.integer(6) != 0;
    attachment.user = statement.integer(7);
    return attachment;
}

} // namespace

ZVXDevUser ZVXDevStorage::userFor(const ZVXDevIdentity &identity)
{
    std::lock_guard lock(m_mutex);
    const QByteArray sql
        = QByteArray(
              "INSERT INTO users (api_key, identity, user_id, installation_id, user_name, extra,"
              " created_ms, seen_ms) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?7)"
              " ON CONFLICT (api_key, identity) DO UPDATE SET seen_ms = excluded.seen_ms,"
              " user_name = coalesce(excluded.user_name, user_name),"
              " extra = coalesce(excluded.extra, extra),"
              " installation_id = iif(excluded.installation_id = '', installation_id,"
              " excluded.installation_id) RETURNING ")
        + UserColumns;
    Statement upsert(m_db, sql.constData());
    upsert.bind(identity.apiKey, identityKey(identity), identity.userId, identity.installationId,
                identity.userName,
                valueText(identity.extra ? QJsonValue(*identity.extra) : QJsonValue::Undefined),
                now());
    if (!upsert.next())
        fail(m_db, "user");
    const ZVXDevUser user = readUser(upsert);
    upsert.run();
    return user;
}

std::optional<ZVXDevUser> ZVXDevStorage::findUser(const ZVXDevIdentity &identity)
{
    std::lock_guard lock(m_mutex);
    const QByteArray sql
        = QByteArray("SELECT ") + UserColumns + " FROM users WHERE api_key = ? AND identity = ?";
    Statement select(m_db, sql.constData());
    if (!select.bind(identity.apiKey, identityKey(identity)).next())
        return std::nullopt;
    return readUser(select);
}

std::optional<ZVXDevUser> ZVXDevStorage::user(qint64 id)
{
    std::lock_guard lock(m_mutex);
    const QByteArray sql = QByteArray("SELECT ") + UserColumns + " FROM users WHERE id = ?";
    Statement select(m_db, sql.constData());
    if (!select.bind(id).next())
        return std::nullopt;
    return readUser(select);
}

void ZVXDevStorage::registerDevice(qint64 user, const ZVXDevDevice &device)
{
    std::lock_guard lock(m_mutex);
    Transaction transaction(m_db);
    // The installation moved to this user: its pushes must not reach the one before.
    if (device.deviceToken && !device.deviceToken->isEmpty()) {
        Statement(m_db,
                  "DELETE FROM devices WHERE device_token = ?1 AND user != ?2"
                  " AND api_key = (SELECT api_key FROM users WHERE id = ?2)")
            .bind(*device.deviceToken, user)
            .run();
    }
    Statement(m_db,
              "INSERT INTO devices (user, api_key, installation_id, device_token, apns, app_id,"
              " app_version, device_info, registered_ms)"
              " SELECT ?1, api_key, ?2, ?3, ?4, ?5, ?6, ?7, ?8 FROM users WHERE id = ?1"
              " ON CONFLICT (user, installation_id) DO UPDATE SET"
              " device_token = excluded.device_token, apns = excluded.apns,"
              " app_id = excluded.app_id, app_version = excluded.app_version,"
              " device_info = excluded.device_info, registered_ms = excluded.registered_ms")
        .bind(user, device.installationId, device.deviceToken, device.apns, device.appId,
              device.appVersion, device.deviceInfo, now())
        .run();
    transaction.commit();
}

bool ZVXDevStorage::hasDevice(qint64 user, const QString &installationId)
{
    std::lock_guard lock(m_mutex);
    Statement select(m_db, "SELECT 1 FROM devices WHERE user = ? AND installation_id = ?");
    return select.bind(user, installationId).next();
}

ZVXDevStorage::Insert ZVXDevStorage::insertMessage(const ZVXDevMessageRecord &message,
                                                   const std::function<bool()> &commitFiles)
{
    std::lock_guard lock(m_mutex);
    Transaction transaction(m_db);
    Statement owner(m_db, "SELECT user FROM messages WHERE uuid = ?");
    if (owner.bind(message.uuid).next())
        return owner.integer(0) == message.user ? Insert::Duplicate : Insert::Conflict;
    Statement taken(m_db, "SELECT 1 FROM attachments WHERE uuid = ?");
    for (const ZVXDevAttachmentRecord &attachment : message.attachments) {
        if (taken.bind(attachment.uuid).next())
            return Insert::Conflict;
    }

    Statement insert(m_db,
                     "INSERT INTO messages (uuid, user, sender, text, user_name, location,"
                     " context, date_ms, read) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert
        .bind(message.uuid, message.user, message.sender, message.text, message.userName,
              valueText(message.location ? QJsonValue(*message.location) : QJsonValue::Undefined),
              valueText(message.context), message.dateMs, message.read)
        .run();
    const qint64 messageId = sqlite3_last_insert_rowid(m_db);
    Statement insertAttachment(m_db,
                               "INSERT INTO attachments (uuid, message, position, content_type,"
                               " filename, length, width, height, has_preview)"
                               " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    for (int i = 0; i < message.attachments.size(); ++i) {
        const ZVXDevAttachmentRecord &a = message.attachments.at(i);
        insertAttachment
            .bind(a.uuid, messageId, i, a.contentType, a.filename, a.length, a.imageSize.width(),
                  a.imageSize.height(), a.hasPreview)
            .run();
    }
    if (commitFiles && !commitFiles())
        throw std::runtime_error("cannot store the attachment files");
    transaction.commit();
    return Insert::Stored;
}

QList<ZVXDevMessageRecord> ZVXDevStorage::readMessages(Statement &statement, qint64 maxBytes,
                                                       bool *stopped)
{
    QList<ZVXDevMessageRecord> messages;
    qint64 bytes = 0;
    while (statement.next()) {
        // Text, name, location and context: what a message of the page weighs, before reading it.
        bytes += statement.size(4) + statement.size(5) + statement.size(6) + statement.size(7);
        if (maxBytes > 0 && bytes > maxBytes && !messages.isEmpty()) {
            if (stopped)
                *stopped = true;
            break;
        }
        ZVXDevMessageRecord message;
        message.id = statement.integer(0);
        message.uuid = statement.string(1);
        message.user = statement.integer(2);
        message.sender = statement.string(3);
        message.text = statement.text(4);
        message.userName = statement.text(5);
        if (const QJsonValue location = valueFromText(statement.text(6)); location.isObject())
            message.location = location.toObject();
        message.context = valueFromText(statement.text(7));
        message.dateMs = statement.integer(8);
        message.read = statement.integer(9) != 0;
        messages.append(message);
    }
    loadAttachments(messages);
    return messages;
}

void ZVXDevStorage::loadAttachments(QList<ZVXDevMessageRecord> &messages)
{
    const QByteArray sql = QByteArray("SELECT ") + AttachmentColumns
        + " FROM attachments a JOIN messages m ON m.id = a.message WHERE a.message = ?"
          " ORDER BY a.position";
    Statement select(m_db, sql.constData());
    for (ZVXDevMessageRecord &message : messages) {
        select.bind(message.id);
        while (select.next())
            message.attachments.append(readAttachment(select));
    }
}

ZVXDevMessagePage ZVXDevStorage::messages(qint64 user, const ZVXDevMessageQuery &query)
{
    std::lock_guard lock(m_mutex);
    const qint64 lower
        = query.sinceSeconds ? *query.sinceSeconds * 1000 : std::numeric_limits<qint64>::min();
    // "until" names a whole second: everything within it belongs to the page.
    const qint64 upper = query.untilSeconds ? (*query.untilSeconds + 1) * 1000
                                            : std::numeric_limits<qint64>::max();
    ZVXDevMessagePage page;
    const QByteArray range = QByteArray("SELECT ") + MessageColumns
        + " FROM messages WHERE user = ? AND date_ms >= ? AND date_ms < ?";
    if (query.sinceSeconds) {
        // Forward from the date, so that a client catching up walks through in pages.
        Statement select(m_db, (range + " ORDER BY date_ms, id LIMIT ?").constData());
        select.bind(user, lower, upper, query.limit);
        page.messages = readMessages(select, query.maxBytes);
    } else {
        // Newest first, so that a page cut by its weight keeps the newest.
        Statement select(m_db, (range + " ORDER BY date_ms DESC, id DESC LIMIT ?").constData());
        select.bind(user, lower, upper, query.limit);
        page.messages = readMessages(select, query.maxBytes);
        std::reverse(page.messages.begin(), page.messages.end());
    }

    Statement older(m_db,
                    "SELECT EXISTS (SELECT 1 FROM messages WHERE user = ?"
                    " AND (date_ms, id) < (?, ?))");
    if (!page.messages.isEmpty())
        older.bind(user, page.messages.first().dateMs, page.messages.first().id);
    else
        older.bind(user, lower, qint64(0));
    page.moreMessages = older.next() && older.integer(0) != 0;
    return page;
}

ZVXDevConsolePage ZVXDevStorage::consoleMessages(qint64 user, const ZVXDevConsoleQuery &query)
{
    std::lock_guard lock(m_mutex);
    ZVXDevConsolePage page;
    const QByteArray columns = QByteArray("SELECT ") + MessageColumns + " FROM messages";
    if (query.afterId) {
        Statement select(m_db,
                         (columns + " WHERE user = ? AND id > ? ORDER BY id LIMIT ?").constData());
        select.bind(user, *query.afterId, query.limit);
        page.messages = readMessages(select, query.maxBytes, &page.later);
        page.later = page.later || page.messages.size() == query.limit;
    } else {
        Statement select(
            m_db, (columns + " WHERE user = ? AND id < ? ORDER BY id DESC LIMIT ?").constData());
        select.bind(user, query.beforeId.value_or(std::numeric_limits<qint64>::max()), query.limit);
        page.messages = readMessages(select, query.maxBytes);
        std::reverse(page.messages.begin(), page.messages.end());
        Statement earlier(m_db, "SELECT EXISTS (SELECT 1 FROM messages WHERE user = ? AND id < ?)");
        earlier.bind(
            user, page.messages.isEmpty() ? query.beforeId.value_or(0) : page.messages.first().id);
        page.earlier = earlier.next() && earlier.integer(0) != 0;
    }
    Statement unseen(m_db,
                     "SELECT id FROM messages WHERE user = ? AND sender != 'user' AND read = 0"
                     " ORDER BY id DESC LIMIT ?");
    unseen.bind(user, MaxUnseen + 1);
    while (unseen.next())
        page.unseen.append(unseen.integer(0));
    page.unseenMore = page.unseen.size() > MaxUnseen;
    if (page.unseenMore)
        page.unseen.removeLast();
    return page;
}

int ZVXDevStorage::unreadCount(qint64 user)
{
    std::lock_guard lock(m_mutex);
    Statement count(m_db,
                    "SELECT count(*) FROM messages WHERE user = ? AND sender != 'user'"
                    " AND read = 0");
    return count.bind(user).next() ? int(count.integer(0)) : 0;
}

void ZVXDevStorage::markReadByUser(qint64 user, const QStringList &uuids)
{
    std::lock_guard lock(m_mutex);
    Transaction transaction(m_db);
    Statement mark(m_db,
                   "UPDATE messages SET read = 1 WHERE user = ? AND uuid = ?"
                   " AND sender != 'user'");
    for (const QString &uuid : uuids)
        mark.bind(user, uuid).run();
    transaction.commit();
}

void ZVXDevStorage::markReadByAgent(qint64 user)
{
    std::lock_guard lock(m_mutex);
    Statement(m_db, "UPDATE messages SET read = 1 WHERE user = ? AND sender = 'user' AND read = 0")
        .bind(user)
        .run();
}

std::optional<ZVXDevAttachmentRecord> ZVXDevStorage::attachment(const QString &uuid)
{
    std::lock_guard lock(m_mutex);
    const QByteArray sql = QByteArray("SELECT ") + AttachmentColumns
        + " FROM attachments a JOIN messages m ON m.id = a.message WHERE a.uuid = ?";
    Statement select(m_db, sql.constData());
    if (!select.bind(uuid).next())
        return std::nullopt;
    return readAttachment(select);
}

QList<ZVXDevConversationSummary> ZVXDevStorage::conversations(int limit, int textLength)
{
    std::lock_guard lock(m_mutex);
    const QByteArray sql = QByteArray("SELECT ") + UserColumns
        + ", (SELECT count(*) FROM messages WHERE user = u.id AND sender = 'user' AND read = 0),"
          " (SELECT count(*) FROM devices WHERE user = u.id),"
          " (SELECT id FROM messages WHERE user = u.id ORDER BY date_ms DESC, id DESC LIMIT 1)"
          " AS last FROM users u"
          " ORDER BY (SELECT date_ms FROM messages WHERE id = last) DESC, u.seen_ms DESC"
          " LIMIT ?";
    Statement select(m_db, sql.constData());
    select.bind(limit);
    QList<ZVXDevConversationSummary> conversations;
    QList<qint64> lastMessages;
    while (select.next()) {
        ZVXDevConversationSummary summary;
        summary.user = readUser(select);
        summary.unreadByAgent = int(select.integer(6));
        summary.devices = int(select.integer(7));
        lastMessages.append(select.integer(8));
        conversations.append(summary);
    }
    // The list shows a line of each: no more of the text, and neither context nor location.
    Statement last(m_db,
                   "SELECT id, uuid, user, sender, substr(text, 1, ?), user_name,"
                   " iif(location IS NULL, NULL, '{}'), NULL, date_ms, read"
                   " FROM messages WHERE id = ?");
    for (int i = 0; i < conversations.size(); ++i) {
        last.bind(textLength, lastMessages.at(i));
        const QList<ZVXDevMessageRecord> found = readMessages(last);
        if (!found.isEmpty())
            conversations[i].lastMessage = found.first();
    }
    return conversations;
}
