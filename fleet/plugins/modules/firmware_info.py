#!/usr/bin/python
"""Tells what a server is made of, and what packages offer to it."""

DOCUMENTATION = r'''
module: firmware_info
short_description: What a server is made of, and what firmware packages offer to it
description:
  - Runs C(zaldeploy inventory) and, where packages are given, C(zaldeploy plan), and keeps both as the fact C(flashlib).
  - Changes nothing.
  - A part that can't be read is no failure; its C(problem) says why.
author: FlashLib developers
extends_documentation_fragment: flashlib.fleet.zaldeploy
options:
  packages:
    description: Folders of packages on the host. Without them nothing is asked of packages.
attributes:
  check_mode:
    support: full
    description: Does the same.
  diff_mode:
    support: none
    description: Changes nothing.
'''

EXAMPLES = r'''
- name: Know what the server is made of
  flashlib.fleet.firmware_info:

- name: Tell the version of its ROM
  ansible.builtin.debug:
    var: flashlib.inventory.parts.system_rom.version
'''

RETURN = r'''
ansible_facts:
  description: What was found out.
  returned: success
  type: dict
  contains:
    flashlib:
      description: What zaldeploy has printed, as docs/zaldeploy.schema.json describes it.
      type: dict
      contains:
        inventory:
          description: What C(zaldeploy inventory) has printed.
          type: dict
        plan:
          description: What C(zaldeploy plan) has printed; null without packages.
          type: dict
msg:
  description: What can't be read, and what is offered.
  returned: always
  type: str
  sample: "Offered: TMBR from 1.2.5 to 1.3.2."
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.flashlib.fleet.plugins.module_utils import zaldeploy


def parts(inventory):
    """Every part that the server has."""
    for entry in inventory['parts'].values():
        for part in entry if isinstance(entry, list) else [entry]:
            if part:
                yield part


def main():
    module = AnsibleModule(zaldeploy.arguments(), supports_check_mode=True)
    inventory = zaldeploy.run(module, 'inventory')
    plan = None
    if module.params['packages']:
        plan = zaldeploy.run(module, 'plan', *zaldeploy.package_options(module))
    words = ['%s: %s' % (part['name'], part['problem']) for part in parts(inventory) if part.get('problem')]
    words.append(zaldeploy.message(plan['packages'], 'Offered:') if plan else '')
    module.exit_json(changed=False, msg=' '.join(words).strip(),
                     ansible_facts=dict(flashlib=dict(inventory=inventory, plan=plan)))


if __name__ == '__main__':
    main()
