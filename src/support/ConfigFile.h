/**
 * @file ConfigFile.h
 * @brief The configuration file, read whole.
 */
#pragma once

#include <string>

#include "wire/ConfigText.h"

namespace tornval {

/** The model of a configuration file (ConfigText.h), with its questions, loaded by a path. */
class CConfigFile : public wire::CConfigText
{
public:
    /**
     * Reads a file; what was read before is dropped.
     *
     * @param i_pszPath path of the target.
     * @return true if it could be opened (and its lines found room), whatever it held.
     */
    bool Load(const char* i_pszPath);

private:
    std::string m_strPath;
};

} // namespace tornval
