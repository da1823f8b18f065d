// Expression nodes: allocation and release.  Every live node is on one
// doubly linked list (newest first), so that all of them can be freed at
// once, and so that the parser can free exactly the nodes made since a
// given moment (everything in front of an older node on the list).
//
// Nodes come from chunks of NODESPERCHUNK records (tag "tok"), not one
// allocation each: a program of a million statements holds millions of
// nodes, and a block of its own would cost each of them the allocator's
// 80 bytes of header and guards on top of the node.  A freed node goes on a
// free list and is handed out again; the chunks go back to the allocator
// when no node is live any more (after freeallnodes, which the engine reset
// and every compilation run).
#include <cstring>

#include "code/code.h"

// Under AddressSanitizer a node on the free list is poisoned, so that a use
// after freenode is still caught although the memory stays in its chunk.
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define NODE_POISON(p) ASAN_POISON_MEMORY_REGION((p), sizeof(ExprNode))
#define NODE_UNPOISON(p) ASAN_UNPOISON_MEMORY_REGION((p), sizeof(ExprNode))
#else
#define NODE_POISON(p) ((void)(p))
#define NODE_UNPOISON(p) ((void)(p))
#endif

namespace vexor {

ExprNode* livenodes = nullptr;

namespace {

constexpr int NODESPERCHUNK = 512;

struct NodeChunk {
  NodeChunk* next;
  ExprNode nodes[NODESPERCHUNK];
};

NodeChunk* chunks = nullptr;
int chunkused = NODESPERCHUNK;  // nodes handed out from the newest chunk
ExprNode* freenodes = nullptr;  // linked through next
long nlive = 0;

void releasechunks() {
  while (chunks) {
    NodeChunk* next = chunks->next;
    NODE_UNPOISON(chunks);
    for (ExprNode& n : chunks->nodes) NODE_UNPOISON(&n);
    memfree(chunks);
    chunks = next;
  }
  chunkused = NODESPERCHUNK;
  freenodes = nullptr;
}

}  // namespace

ExprNode* newnode() {
  ExprNode* n;
  if (freenodes) {
    n = freenodes;
    NODE_UNPOISON(n);
    freenodes = n->next;
  } else {
    if (chunkused == NODESPERCHUNK) {
      auto* c = static_cast<NodeChunk*>(memalloc(sizeof(NodeChunk), "tok"));
      c->next = chunks;
      chunks = c;
      chunkused = 0;
    }
    n = &chunks->nodes[chunkused++];
  }
  std::memset(n, 0, sizeof *n);
  n->next = livenodes;
  if (livenodes) livenodes->prev = n;
  livenodes = n;
  ++nlive;
  return n;
}

// freenode: unlinks one node and frees it with its string text and the
// statement-level token it still holds.
void freenode(ExprNode* node) {
  if (!node) return;
  if (node->prev)
    node->prev->next = node->next;
  else if (livenodes == node)
    livenodes = node->next;
  if (node->next) node->next->prev = node->prev;
  if (node->text) memfree(node->text);
  if (node->token) freetok(node->token);
  node->prev = nullptr;
  node->next = freenodes;
  freenodes = node;
  NODE_POISON(node);
  if (--nlive == 0) releasechunks();
}

void freeallnodes() {
  while (livenodes) freenode(livenodes);
  releasechunks();
  nlive = 0;
  exprreset();
}

// freetree: every node of the tree, on an explicit stack (a tree may be far
// deeper than the machine stack would allow to recurse).
void freetree(ExprNode* tree) {
  if (!tree) return;
  WorkStack<ExprNode*> st;
  st.push(tree);
  while (!st.empty()) {
    ExprNode* n = st.top();
    st.pop();
    if (n->left) st.push(n->left);
    if (n->right) st.push(n->right);
    if (n->cond) st.push(n->cond);
    for (ExprNode* a = n->firstarg; a; a = a->nextarg) st.push(a);
    freenode(n);
  }
}

}  // namespace vexor
