#pragma once

/// Keeps a copy of the agent's key where hdbbackint, which runs as the SAP system's user, can read it:
/// "/var/opt/tarvex/dorsal3/$COMPONENT/access_key", mode 0640, group "sapsys" where that group exists. A file that is
/// right already is left alone. False when it cannot be written; the cause is logged. Any thread.
bool generate_access_key_file();
