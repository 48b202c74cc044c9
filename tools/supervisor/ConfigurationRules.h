// What must hold between the modules of a configuration.
#pragma once

struct Configuration;
class ConfigurationReader;

/// Names that a module can have, each used once; waiting that can come to an end; one owner for each data folder.
void checkRules(const Configuration& configuration, ConfigurationReader& reader);
