#include "net/Header.h"

#include "base/Exception.h"
#include "base/Util.h"

void Header::add(const char* line) {
    std::string text(line != nullptr ? line : "");
    std::string::size_type colon = text.find(':');
    if (colon == std::string::npos || colon == 0)
        throw Exception("Header::add", "No header name found", -1);
    std::string name = Util::lower(text.substr(0, colon));
    std::string value;
    if (colon + 2 < text.length())
        value = text.substr(colon + 2);
    (*this)[name].push_back(value);
}

const std::string* Header::getFirstValue(const std::string& name) const {
    const_iterator found = find(name);
    if (found == end() || found->second.empty())
        return nullptr;
    return &found->second.front();
}

const std::list<std::string>* Header::getValueList(const std::string& name) const {
    const_iterator found = find(name);
    return found == end() ? nullptr : &found->second;
}

std::string Header::toString() const {
    std::string text;
    for (const auto& field : *this)
        for (const auto& value : field.second)
            text += field.first + ": " + value + "\n";
    return text;
}
