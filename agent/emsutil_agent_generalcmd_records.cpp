#include "emsutil/general_command.h"

#include <cstdlib>

namespace NSQN_EMSUTIL_AGENT {

namespace {

// The text forms are appended to one string, so that a command of any size takes one pass. A text
// field is appended up to its first NUL.

void Append(std::string& text, const EmsNameAndValueStringTypePair& pair)
{
    switch (pair.rtype) {
    case NVTP_TYPE_STRING:
        text.append("nvtp={name=").append(pair.name.c_str());
        text.append(",value=").append(pair.value.c_str()).append(",rtype=String}");
        break;
    case NVTP_TYPE_LONG: {
        const long long value = std::strtoll(pair.value.c_str(), nullptr, 10);
        text.append("nvtp={name=").append(pair.name.c_str());
        text.append(",value=").append(std::to_string(static_cast<std::int32_t>(value)));
        text.append(",rtype=Long}");
        break;
    }
    default:
        break;
    }
}

void Append(std::string& text, const EmsNVTPList& list);
void Append(std::string& text, const EmsGeneralObj& obj);

template <class Element>
void AppendList(std::string& text, const std::list<Element>& elements)
{
    const char* separator = "";
    for (const Element& element : elements) {
        text.append(separator);
        Append(text, element);
        separator = ",";
    }
}

void Append(std::string& text, const EmsNVTPList& list)
{
    text.append("nvtps={");
    AppendList(text, list.nvtps);
    text.append("}");
}

void Append(std::string& text, const EmsGeneralObj& obj)
{
    text.append("obj={");
    Append(text, obj.nvtps);
    text.append("}");
}

void Append(std::string& text, const EmsGeneralObjList& list)
{
    text.append("objs={");
    AppendList(text, list.objs);
    text.append("}");
}

void Append(std::string& text, const EmsGeneralCmd& cmd)
{
    text.append(":").append(cmd.name.c_str()).append("={");
    Append(text, cmd.objs);
    text.append(",");
    Append(text, cmd.nvtps);
    text.append("};");
}

template <class Record>
std::string TextForm(const Record& record)
{
    std::string text;
    Append(text, record);
    return text;
}

} // namespace

// Every copy constructor creates an empty record and assigns to it, so only operator= defines what
// a copy contains.

EmsNameAndValueStringTypePair::EmsNameAndValueStringTypePair() : rtype(NVTP_TYPE_STRING) {}

EmsNameAndValueStringTypePair::EmsNameAndValueStringTypePair(
    const EmsNameAndValueStringTypePair& other)
    : EmsNameAndValueStringTypePair()
{
    *this = other;
}

EmsNameAndValueStringTypePair&
EmsNameAndValueStringTypePair::operator=(const EmsNameAndValueStringTypePair& other)
{
    if (this != &other) {
        name = other.name;
        value = other.value;
        rtype = other.rtype;
    }
    return *this;
}

std::string EmsNameAndValueStringTypePair::ToString()
{
    return TextForm(*this);
}

EmsNameAndValueStringTypePair EmsNameAndValueStringTypePair::FromString(std::string&)
{
    return {};
}

EmsNVTPList::EmsNVTPList() {}

EmsNVTPList::EmsNVTPList(const EmsNVTPList& other) : EmsNVTPList()
{
    *this = other;
}

EmsNVTPList& EmsNVTPList::operator=(const EmsNVTPList& other)
{
    if (this != &other) {
        nvtps = other.nvtps;
    }
    return *this;
}

std::string EmsNVTPList::ToString()
{
    return TextForm(*this);
}

EmsNVTPList EmsNVTPList::FromString(std::string&)
{
    return {};
}

EmsGeneralObj::EmsGeneralObj() {}

EmsGeneralObj::EmsGeneralObj(const EmsGeneralObj& other) : EmsGeneralObj()
{
    *this = other;
}

EmsGeneralObj& EmsGeneralObj::operator=(const EmsGeneralObj& other)
{
    if (this != &other) {
        nvtps = other.nvtps;
    }
    return *this;
}

std::string EmsGeneralObj::ToString()
{
    return TextForm(*this);
}

EmsGeneralObj EmsGeneralObj::FromString(std::string&)
{
    return {};
}

EmsGeneralObjList::EmsGeneralObjList() {}

EmsGeneralObjList::EmsGeneralObjList(const EmsGeneralObjList& other) : EmsGeneralObjList()
{
    *this = other;
}

EmsGeneralObjList& EmsGeneralObjList::operator=(const EmsGeneralObjList& other)
{
    if (this != &other) {
        objs = other.objs;
    }
    return *this;
}

std::string EmsGeneralObjList::ToString()
{
    return TextForm(*this);
}

EmsGeneralObjList EmsGeneralObjList::FromString(std::string&)
{
    return {};
}

EmsGeneralCmd::EmsGeneralCmd() {}

EmsGeneralCmd::EmsGeneralCmd(const EmsGeneralCmd& other) : EmsGeneralCmd()
{
    *this = other;
}

EmsGeneralCmd& EmsGeneralCmd::operator=(const EmsGeneralCmd& other)
{
    if (this != &other) {
        name = other.name;
        objs = other.objs;
        nvtps = other.nvtps;
    }
    return *this;
}

std::string EmsGeneralCmd::ToString()
{
    return TextForm(*this);
}

EmsGeneralCmd EmsGeneralCmd::FromString(std::string&)
{
    return {};
}

} // namespace NSQN_EMSUTIL_AGENT
