#pragma once

#include <string>
#include <vector>

/// Descriptions as cameras have them, written by a few words. The port is called Device.

inline std::string Node(const std::string &kind, const std::string &name, const std::string &inside)
{
    return "<" + kind + " Name=\"" + name + "\" NameSpace=\"Standard\">" + inside + "</" + kind + ">\n";
}

/// A register of any kind: `tail` are further property elements.
inline std::string Register(const std::string &kind, const std::string &name, const std::string &address,
                            const std::string &length, const std::string &tail = "", const std::string &access = "RW")
{
    return Node(kind, name,
                "<Address>" + address + "</Address><Length>" + length + "</Length><AccessMode>" + access +
                    "</AccessMode><pPort>Device</pPort>" + tail);
}

inline std::string IntReg(const std::string &name, const std::string &address, const std::string &length = "4",
                          const std::string &access = "RW", const std::string &endianess = "BigEndian")
{
    return Register("IntReg", name, address, length, "<Sign>Unsigned</Sign><Endianess>" + endianess + "</Endianess>",
                    access);
}

/// A description with a Root category that lists `features`, and `nodes`.
inline std::string DescriptionOf(const std::vector<std::string> &features, const std::string &nodes)
{
    std::string listed;
    for (const std::string &feature : features)
        listed += "<pFeature>" + feature + "</pFeature>";
    return R"(<?xml version="1.0" encoding="UTF-8"?>
<RegisterDescription ModelName="Test" VendorName="Nuvark" StandardNameSpace="None" SchemaMajorVersion="1"
 SchemaMinorVersion="1" SchemaSubMinorVersion="0" MajorVersion="2" MinorVersion="3" SubMinorVersion="4"
 ProductGuid="1" VersionGuid="2" xmlns="http://www.genicam.org/GenApi/Version_1_1">
)" + Node("Category", "Root", listed) +
           nodes + Node("Port", "Device", "") + "</RegisterDescription>\n";
}
