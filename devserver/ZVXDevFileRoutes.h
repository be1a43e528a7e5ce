#pragma once

#include "ZVXDevRecords.h"

#include <httplib.h>

class ZVXDevFiles;
struct ZVXDevServices;

/*
    Attachment files and previews under "/api/1.0/files/{uuid}" and
    "/api/1.0/previews/{uuid}", for their owner only. Clients fetch them
    with the token in the "jwt" query parameter.
*/
namespace ZVXDevFileRoutes {

void install(httplib::Server &server, const ZVXDevServices &services);

/*!
    Answers with the file (or its preview) of \a attachment, or 404 when
    there is none; read from disk as it is sent, a range of it when \a req
    asks for one. Files that are not plain pictures come as downloads, and
    none may run script or reach anything in a browser.
*/
void serve(const ZVXDevFiles &files, const ZVXDevAttachmentRecord &attachment, bool preview,
           const httplib::Request &req, httplib::Response &res);

} // namespace ZVXDevFileRoutes
