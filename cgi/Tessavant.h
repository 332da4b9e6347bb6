#pragma once

#include <string>

class Exchange;
class File;
class QueryString;

// One request from intake to reply: finds the parameter text, parses it and
// answers the command in "cmd". Everything it is given and everything it
// answers passes through the exchange.
class Tessavant {
  public:
    static const char* const VERSION;
    static constexpr int COPY_BUFFER_SIZE = 524288;

    // text, when given, is the request text of a command-line run.
    explicit Tessavant(Exchange& exchange, const char* text = nullptr)
        : exchange(exchange), text(text) {}

    // Serves the request; returns the exit status. Intake failures are
    // thrown as Exception and deliberately not caught here.
    int run();

  private:
    void banner();
    void environment();
    void version();
    void serverInformation();
    void image(QueryString& q);
    // The client's copy is current: its entity tag matches, or it is not
    // older than the image.
    bool current(const std::string& modified) const;
    static std::string imageHeader(const std::string& modified, int length);
    // Writes pending (the header) with the first chunk, and clears it.
    void copyBody(File& file, int length, std::string& pending);
    void put(const std::string& text) { reply += text; }

    Exchange& exchange;
    const char* text;
    // Text replies are gathered and written whole.
    std::string reply;
};
