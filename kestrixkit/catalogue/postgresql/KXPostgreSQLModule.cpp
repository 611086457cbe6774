#include <qglobal.h>

#include <kestrixkit/catalogue/KXPostgreSQLLibrary_p.h>

/// What KXPostgreSQLLibrary::shared() asks for.
extern "C" Q_DECL_EXPORT const KXPostgreSQLLibrary *KXPostgreSQLModule()
{
    static const KXPostgreSQLLibrary library {
        .cancel = &PQcancel,
        .clear = &PQclear,
        .connectPoll = &PQconnectPoll,
        .connectStartParams = &PQconnectStartParams,
        .connectdbParams = &PQconnectdbParams,
        .conninfoFree = &PQconninfoFree,
        .conninfoParse = &PQconninfoParse,
        .consumeInput = &PQconsumeInput,
        .errorMessage = &PQerrorMessage,
        .escapeLiteral = &PQescapeLiteral,
        .exec = &PQexec,
        .finish = &PQfinish,
        .flush = &PQflush,
        .freeCancel = &PQfreeCancel,
        .freemem = &PQfreemem,
        .getCancel = &PQgetCancel,
        .getResult = &PQgetResult,
        .getisnull = &PQgetisnull,
        .getlength = &PQgetlength,
        .getvalue = &PQgetvalue,
        .isBusy = &PQisBusy,
        .nfields = &PQnfields,
        .ntuples = &PQntuples,
        .parameterStatus = &PQparameterStatus,
        .putCopyData = &PQputCopyData,
        .putCopyEnd = &PQputCopyEnd,
        .resultErrorField = &PQresultErrorField,
        .resultErrorMessage = &PQresultErrorMessage,
        .resultStatus = &PQresultStatus,
        .sendQuery = &PQsendQuery,
        .sendQueryParams = &PQsendQueryParams,
        .serverVersion = &PQserverVersion,
        .setNoticeProcessor = &PQsetNoticeProcessor,
        .setnonblocking = &PQsetnonblocking,
        .socket = &PQsocket,
        .status = &PQstatus,
    };
    return &library;
}
