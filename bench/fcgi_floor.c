/* The floor of a FastCGI image request: a minimal responder on libfcgi that
 * answers every request with the header block and the bytes of the file named
 * by QUERY_STRING as it stands. No cipher, no C++ run time. Started like the
 * program, with a listening socket as standard input. */
#include <fcgiapp.h>
#include <stdio.h>
#include <sys/stat.h>
#include <time.h>

static char buffer[524288];

int main(void) {
    FCGX_Request request;
    FCGX_Init();
    FCGX_InitRequest(&request, 0, 0);
    while (FCGX_Accept_r(&request) == 0) {
        const char* path = FCGX_GetParam("QUERY_STRING", request.envp);
        FILE* file = path != NULL ? fopen(path, "rb") : NULL;
        struct stat status;
        if (file != NULL && fstat(fileno(file), &status) == 0) {
            char date[64];
            strftime(date, sizeof date, "%a, %d %b %Y %H:%M:%S GMT", gmtime(&status.st_mtime));
            FCGX_FPrintF(request.out,
                         "Connection: keep-alive\nContent-Type: application/octet-stream\n"
                         "Accept-Ranges: bytes\nLast-Modified: %s\nEtag: \"%s\"\n"
                         "Cache-Control: max-age=31536000, must-revalidate, public\n"
                         "Expires: Fri, 31 Dec 2027 12:00:00 GMT\nContent-Length: %lld\n\n",
                         date, date, (long long)status.st_size);
            size_t n;
            while ((n = fread(buffer, 1, sizeof buffer, file)) > 0)
                FCGX_PutStr(buffer, (int)n, request.out);
        }
        if (file != NULL)
            fclose(file);
        FCGX_Finish_r(&request);
    }
    return 0;
}
