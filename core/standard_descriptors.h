#pragma once

/// At the start of a program: a standard descriptor that is closed would else be that of the next
/// file or socket that is opened, and texts for the user would go there. Reading and writing there
/// fail as before.
void holdStandardDescriptors();
