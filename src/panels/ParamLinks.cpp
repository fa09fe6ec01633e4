#include "panels/ParamLinks.h"

#include <algorithm>
#include <utility>

void ParamLinks::Add(const ParamLink &link)
{
    const orv::MutexLock lock(m_mutex);
    m_links.push_back(link);
}

void ParamLinks::Clear()
{
    const orv::MutexLock lock(m_mutex);
    m_links.clear();
    m_requests.clear();
}

ParamLink ParamLinks::ForControl(const QString &control) const
{
    const orv::MutexLock lock(m_mutex);
    const auto found =
        std::find_if(m_links.begin(), m_links.end(), [&](const ParamLink &link) { return link.control == control; });
    return found == m_links.end() ? ParamLink() : *found;
}

ParamLink ParamLinks::ForParam(const QString &param) const
{
    const orv::MutexLock lock(m_mutex);
    const ParamLink *const found = FindParam(param);
    return found == nullptr ? ParamLink() : *found;
}

bool ParamLinks::HasParam(const QString &param) const
{
    const orv::MutexLock lock(m_mutex);
    return FindParam(param) != nullptr;
}

std::vector<QString> ParamLinks::Params() const
{
    const orv::MutexLock lock(m_mutex);
    return CopyParams();
}

void ParamLinks::Request(const QString &param)
{
    const orv::MutexLock lock(m_mutex);
    if (param.isEmpty())
        m_requests = CopyParams();
    else
        Append(param);
}

bool ParamLinks::RequestIfBound(const QString &param)
{
    const orv::MutexLock lock(m_mutex);
    if (FindParam(param) == nullptr)
        return false;
    Append(param);
    return true;
}

std::vector<QString> ParamLinks::TakeRequests()
{
    const orv::MutexLock lock(m_mutex);
    return std::exchange(m_requests, {});
}

const ParamLink *ParamLinks::FindParam(const QString &param) const
{
    const auto found =
        std::find_if(m_links.begin(), m_links.end(), [&](const ParamLink &link) { return link.param == param; });
    return found == m_links.end() ? nullptr : &*found;
}

void ParamLinks::Append(const QString &param)
{
    if (std::find(m_requests.begin(), m_requests.end(), param) == m_requests.end())
        m_requests.push_back(param);
}

std::vector<QString> ParamLinks::CopyParams() const
{
    std::vector<QString> params;
    params.reserve(m_links.size());
    for (const ParamLink &link : m_links)
        params.push_back(link.param);
    return params;
}
