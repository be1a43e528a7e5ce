#pragma once

#include "ZVXDevConversations.h"
#include "ZVXDevMultipart.h"

#include <httplib.h>

/*
    Reading a message that a user sends: a multipart body whose part
    "message" is the JSON object and whose further parts are the files,
    one per attachment, named by the attachment's uuid.
*/
namespace ZVXDevMessageUpload {

struct Upload
{
    //! Everything but the user, the name and the date, which the server decides.
    ZVXDevMessageRecord message;
    QList<ZVXDevConversations::Upload> files;
};

inline constexpr int MaxAttachments = 20;
inline constexpr int MaxTextLength = 100000;

//! The message in \a form (the request's body), or nothing after replying 400.
std::optional<Upload> read(const std::optional<ZVXDevMultipart::Form> &form,
                           httplib::Response &res);

//! The uuid the form's "message" part names, whether or not the rest of it is usable.
std::optional<QString> namedUUID(const std::optional<ZVXDevMultipart::Form> &form);

} // namespace ZVXDevMessageUpload
