// Placeholder until the module lands.
#include <unistd.h>
#include "storage/tree.h"
#pragma GCC diagnostic ignored "-Wunused-parameter"
int AVL_insert(avl_tree *tree, avl *node) { return 0; }
avl * AVL_search(avl_tree *tree, const char *key) { return nullptr; }
int AVL_remove(avl_tree *tree, const char *key) { return 0; }
