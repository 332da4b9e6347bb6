#pragma once

#include <string>

class QueryString;

// One CGI request from intake to reply: finds the parameter text, parses it
// and answers the command in "cmd". Everything goes to standard output.
class Tessavant {
  public:
    static const char* const VERSION;
    static constexpr int COPY_BUFFER_SIZE = 524288;

    Tessavant(int argc, char** argv, char** envp);

    // Serves the request; returns the exit status. Intake failures are
    // thrown as Exception and deliberately not caught here.
    int run();

  private:
    void banner();
    void environment();
    void version();
    void serverInformation();
    void image(QueryString& q);

    int argc;
    char** argv;
    char** envp;
};
