#pragma once

#include <string>

// The one error type of the program: a code (errno where a system call
// failed, -1 otherwise) and a message that already carries its context.
class Exception {
  public:
    Exception(std::string message, int code);
    // Stores where + " " + message; where names the throwing operation.
    Exception(std::string where, std::string message, int code);

    const std::string& getMessage() const { return message; }
    int getCode() const { return code; }
    // message + " (" + code + ")"
    std::string getMessageCode() const;

  private:
    int code;
    std::string message;
};
