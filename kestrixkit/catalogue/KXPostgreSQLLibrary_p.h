#pragma once

#include <libpq-fe.h>

/// The functions of libpq, under its names without "PQ". They are in a module (catalogue/postgresql), which is loaded
/// when the first address of a server is read: libpq brings what logs in to networks with it, and most hosts that know
/// of a shop start without one. Any thread.
struct KXPostgreSQLLibrary
{
    /// nullptr where the module cannot be loaded, which the log says once; then no address can be read.
    [[nodiscard]] static const KXPostgreSQLLibrary *shared();

    decltype(&PQcancel) cancel = &PQcancel;
    decltype(&PQclear) clear = &PQclear;
    decltype(&PQconnectPoll) connectPoll = &PQconnectPoll;
    decltype(&PQconnectStartParams) connectStartParams = &PQconnectStartParams;
    decltype(&PQconnectdbParams) connectdbParams = &PQconnectdbParams;
    decltype(&PQconninfoFree) conninfoFree = &PQconninfoFree;
    decltype(&PQconninfoParse) conninfoParse = &PQconninfoParse;
    decltype(&PQconsumeInput) consumeInput = &PQconsumeInput;
    decltype(&PQerrorMessage) errorMessage = &PQerrorMessage;
    decltype(&PQescapeLiteral) escapeLiteral = &PQescapeLiteral;
    decltype(&PQexec) exec = &PQexec;
    decltype(&PQfinish) finish = &PQfinish;
    decltype(&PQflush) flush = &PQflush;
    decltype(&PQfreeCancel) freeCancel = &PQfreeCancel;
    decltype(&PQfreemem) freemem = &PQfreemem;
    decltype(&PQgetCancel) getCancel = &PQgetCancel;
    decltype(&PQgetResult) getResult = &PQgetResult;
    decltype(&PQgetisnull) getisnull = &PQgetisnull;
    decltype(&PQgetlength) getlength = &PQgetlength;
    decltype(&PQgetvalue) getvalue = &PQgetvalue;
    decltype(&PQisBusy) isBusy = &PQisBusy;
    decltype(&PQnfields) nfields = &PQnfields;
    decltype(&PQntuples) ntuples = &PQntuples;
    decltype(&PQparameterStatus) parameterStatus = &PQparameterStatus;
    decltype(&PQputCopyData) putCopyData = &PQputCopyData;
    decltype(&PQputCopyEnd) putCopyEnd = &PQputCopyEnd;
    decltype(&PQresultErrorField) resultErrorField = &PQresultErrorField;
    decltype(&PQresultErrorMessage) resultErrorMessage = &PQresultErrorMessage;
    decltype(&PQresultStatus) resultStatus = &PQresultStatus;
    decltype(&PQsendQuery) sendQuery = &PQsendQuery;
    decltype(&PQsendQueryParams) sendQueryParams = &PQsendQueryParams;
    decltype(&PQserverVersion) serverVersion = &PQserverVersion;
    decltype(&PQsetNoticeProcessor) setNoticeProcessor = &PQsetNoticeProcessor;
    decltype(&PQsetnonblocking) setnonblocking = &PQsetnonblocking;
    decltype(&PQsocket) socket = &PQsocket;
    decltype(&PQstatus) status = &PQstatus;
};

/// For who has a connection.
inline const KXPostgreSQLLibrary &KXLibpq() { return *KXPostgreSQLLibrary::shared(); }
