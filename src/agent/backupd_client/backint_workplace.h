#pragma once

/// Makes what hdbbackint needs to write in the agent's directory, which is the agent's own: its log and the directory
/// of shared rates. HANA runs hdbbackint as the user of its system, so both are given to the group "sapsys" where that
/// group exists, with modes 0660 and 0770. What cannot be made is logged as a warning: a backup runs without.
void prepare_backint_workplace();
